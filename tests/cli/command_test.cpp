// The daemon and the command as two processes: what a user sees, and how the daemon starts.
#include <daemon.h>
#include <gmock/gmock.h>
#include <linux/capability.h>
#include <output_check.h>
#include <silent_listener.h>
#include <sys/prctl.h>
#include <sys/stat.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

using testing::HasSubstr;
using testing::MatchesRegex;

namespace {

class CommandTest : public PrivateRootTest {
  protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(PrivateRootTest::SetUp());
        PlaceDevice();
        const std::string unit = kUnit;
        // Texts that want to be more than text: no UTF-8, a terminal's escape, a quote.
        WriteFile(unit + "/vendor", "V\xff\x1b[2J\"\n");
        WriteFile(unit + "/model", "M\xc3\xa9\n");
        WriteFile(unit + "/ioerr_cnt", "0x20000000000001\n");       // 2^53 + 1
        WriteFile(unit + "/block/sda/size", "2111062325329920\n");  // ten times its buffer
        WriteFile(std::string(kController) + "/geometry_descriptor/wb_max_alloc_units",
                  "0xffffffff\n");
        WriteLink("/dev/block/mapper/userdata", "elsewhere");
    }

    // Runs the command to its end and keeps its outputs.
    int Ask(
        const std::vector<std::string>& arguments, const std::function<void()>& prepare = [] {}) {
        std::vector<std::string> words{COMMAND_PROGRAM};
        words.insert(words.end(), arguments.begin(), arguments.end());
        Child command(words, "/run/command", prepare);
        const int status = command.Wait();
        out_ = command.out();
        err_ = command.err();
        return status;
    }

    std::string out_, err_;
};

TEST_F(CommandTest, StatusAsJsonIsOneDocument) {
    const Daemon service{SERVICE_PROGRAM};
    EXPECT_EQ(Ask({"--json", "status"}), 3);
    // Keys, their types and their completeness are the schema's; order, numbers and texts are here.
    for (const char* part :
         {"{\n  \"schemaVersion\": 1,\n  \"info\": {\n    \"ufs\": {\n      \"type\": \"UFS\",\n"
          "      \"vendor\": \"V\\ufffd\\u001b[2J\\\"\",\n      \"modelNumber\": \"M\\u00e9\",\n",
          "      \"writeBoosterFraction\": 0.1,\n      \"writeBoosterCurrentAllocUnits\": "
          "1048576,\n"
          "      \"writeBoosterMaxAllocUnits\": 4294967295,\n",
          "      \"totalNumberOfErrors\": 9007199254740993,\n"
          "      \"totalNumberOfErrors_s\": \"9007199254740993\",\n",
          "  \"filesystems\": {\n    \"userdata\": {\n      \"error\": {\n"
          "        \"kind\": \"service\",\n        \"code\": -1\n      }\n    },\n"
          "    \"metadata\": {\n      \"errorCount\": 3,\n      \"lastErrorFunction\": "
          "\"ext4_f\",\n"
          "      \"lastErrorCode\": 5,\n      \"sysfsPath\": \"/sys/fs/ext4/sda1\"\n    }\n  "
          "},\n"}) {
        EXPECT_THAT(out_, HasSubstr(part));
    }
    EXPECT_THAT(err_, MatchesRegex("disk_info: fs userdata: service error -1; [^\n]*\n"));
    EXPECT_EQ(FaultsOf(out_, {"schema", SCHEMA_FILE}), "");
}

TEST_F(CommandTest, PlainOutputIsAlignedLines) {
    const Daemon service{SERVICE_PROGRAM};
    EXPECT_EQ(Ask({"health"}), 0);
    EXPECT_EQ(out_,
              "Reserved blocks:          normal\n"
              "Life time estimation A:   70 % to 80 % used\n"
              "Life time estimation B:   80 % to 90 % used\n"
              "I/O errors:               9007199254740993\n"
              "Discarded blocks read as: all bytes 0x00\n"
              "Verdict:                  ok: nothing that the disk reports is at a limit\n");
    EXPECT_EQ(Ask({"info"}), 0);
    EXPECT_THAT(out_, HasSubstr("\nVendor:                          V\\ufffd\\u001b[2J\\\"\n"));
    EXPECT_EQ(Ask({}), 3);
    EXPECT_THAT(out_, HasSubstr("\n\nPower\n  Link state:  "));
    EXPECT_THAT(out_, HasSubstr("\n\nFilesystem userdata\n  Not available:  "));
    EXPECT_EQ(Ask({"metrics"}), 3);
    EXPECT_THAT(out_, HasSubstr(",firmware=\"r2\",version=\"3.1\"} 1\n"));
    EXPECT_THAT(out_, HasSubstr("\ndisk_info_active 1\n"));
    EXPECT_EQ(FaultsOf(out_, {"metrics"}), "");
}

TEST_F(CommandTest, ExitStatusesAndWhereMessagesGo) {
    const Daemon service{SERVICE_PROGRAM};
    const struct {
        std::vector<std::string> arguments;
        int status;
        const char* out;
        const char* err;
    } cases[] = {
        {{"power", "--json"}, 0, "{\n  \"schemaVersion\": 1,\n  \"power\": {", ""},
        {{"fs", "metadata"}, 0, "Last error:          corrupted\n", ""},
        {{"fs", "userdata"}, 3, "Not available: service error -1", "disk_info: fs userdata: "},
        {{"fs", "cache"},
         3,
         "exception error -3",
         "the partitions served are userdata and metadata"},
        {{"metrics"}, 3, "\ndisk_info_up{call=\"fs_userdata\"} 0\n", "disk_info: fs userdata: "},
        {{"fs"}, 2, "", "PARTITION"},
        {{"nonsense"}, 2, "", "Usage: disk_info"},
        {{"info", "health"}, 2, "", "Usage: disk_info"},
        {{"--watch", "0"}, 2, "", "Usage: disk_info"},
        {{"--watch", "x"}, 2, "", "Usage: disk_info"},
        {{"--timeout", "0"}, 2, "", "Usage: disk_info"},
        {{"--watch", "1", "--json"}, 2, "", "--watch: for plain output alone\n"},
        {{"--json", "metrics"}, 2, "", "Usage: disk_info"},
        {{"--help"}, 0, "Usage: disk_info", ""},
        {{"--version"}, 0, "disk_info 1.", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.arguments));
        EXPECT_EQ(Ask(c.arguments), c.status);
        EXPECT_THAT(out_, HasSubstr(c.out));
        EXPECT_THAT(err_, HasSubstr(c.err));
        EXPECT_EQ(out_.empty(), *c.out == '\0');
        EXPECT_EQ(err_.empty(), *c.err == '\0');
    }
}

TEST_F(CommandTest, WithoutAServiceItSaysWhatToDo) {
    for (const char* format : {"--json", "status"}) {
        EXPECT_EQ(Ask({format}), 4);
        EXPECT_EQ(out_, "");
        EXPECT_THAT(err_, MatchesRegex("disk_info: no service [^\n]*: No such file or directory; "
                                       "[^\n]*: systemctl enable --now disk-info.socket\n"));
    }
    EXPECT_EQ(Ask({"metrics"}), 4);
    EXPECT_THAT(out_, HasSubstr("disk_info_up{call=\"health\"} 0\n"));
}

TEST_F(CommandTest, AServiceThatDoesNotAnswerIsWaitedForUpToTheLimit) {
    const SilentListener listener;
    const struct {
        const char* command;
        const char* out;
    } cases[] = {
        {"power", ""},  // its connection gets the only place in the queue, and no answer
        {"metrics", "disk_info_up{call=\"health\"} 0\n"},  // finds the queue full
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.command);
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(Ask({"--timeout", "1", c.command}), 4);
        EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
        EXPECT_THAT(out_, HasSubstr(c.out));
        EXPECT_EQ(out_.empty(), *c.out == '\0');
        EXPECT_THAT(err_, MatchesRegex("disk_info: the service did not answer within 1 s; "
                                       "[^\n]*disk-info.service [^\n]*\n"));
    }
}

TEST_F(CommandTest, WithoutRightsItNamesTheGroup) {
    const Daemon service{SERVICE_PROGRAM};
    ASSERT_EQ(chmod(kPath, 0), 0);
    // Else root may do without.
    EXPECT_EQ(Ask({"power"}, [] { (void)prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE); }), 4);
    EXPECT_THAT(err_, MatchesRegex("disk_info: no service [^\n]*: Permission denied; "
                                   "join the group disk-info [^\n]*\n"));
}

TEST_F(CommandTest, ASecondDaemonIsRefused) {
    const Daemon first{SERVICE_PROGRAM};
    Child second({SERVICE_PROGRAM}, "/run/second");
    EXPECT_EQ(second.Wait(), 1);
    EXPECT_THAT(second.err(),
                MatchesRegex("ERROR DiskInfoService storage/disk_info/disk_info_service/service/"
                             "main.cpp:[0-9]+: Failed to register lazy service: -17\n"));
    EXPECT_EQ(Ask({"power"}), 0);
}

}  // namespace
