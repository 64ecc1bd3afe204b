// The command as a process: with the daemon, with a service of another interface version, and on a
// terminal.
#include <command.h>
#include <linux/capability.h>
#include <other_service.h>
#include <silent_listener.h>
#include <sys/prctl.h>
#include <sys/stat.h>

#include <chrono>
#include <optional>

using namespace morsk::com::quendar::tavisk::disk_info;
using testing::AllOf;
using testing::HasSubstr;
using testing::MatchesRegex;

namespace {

// The schema covers names and types; these are order, numbers and texts.
TEST_F(CommandTest, StatusAsJsonIsOneDocument) {
    const Daemon service{SERVICE_PROGRAM};
    Expect({"--json", "status"}, 3,
           MatchesRegex("[{]\n  \"schemaVersion\": 1,\n  \"info\": [{]\n    \"ufs\": [{]\n"
                        "      \"type\": \"UFS\",\n"
                        "      \"vendor\": \"V\\\\ufffd\\\\u001b.2J\\\\\"\",\n"
                        "      \"modelNumber\": \"M\\\\u00e9\",\n"
                        ".*\"writeBoosterFraction\": 0.1,\n"
                        ".*\"writeBoosterMaxAllocUnits\": 4294967295,\n"
                        ".*\"totalNumberOfErrors\": 9007199254740993,\n"
                        "      \"totalNumberOfErrors_s\": \"9007199254740993\",\n.*"
                        "  \"filesystems\": [{]\n    \"userdata\": [{]\n      \"error\": [{]\n"
                        "        \"kind\": \"service\",\n        \"code\": -1\n.*"
                        "\"metadata\": [{]\n      \"errorCount\": 3,\n.*\"assessment\": .*"),
           MatchesRegex("disk_info: fs userdata: service error -1: [^\n]*\n"));
    ExpectValid("schema");
}

TEST_F(CommandTest, PlainTextAndMetricsOfAUfsDisk) {
    const Daemon service{SERVICE_PROGRAM};
    Expect({"health"}, 0,
           HasSubstr("I/O errors:               9007199254740993\n"
                     "Discarded blocks read as: all bytes 0x00\n"
                     "Verdict:                  ok: all reported values are within limits\n"),
           "");
    Expect({"metrics"}, 3,
           AllOf(HasSubstr("disk_info_up{call=\"fs_userdata\"} 0\n"),
                 HasSubstr(",firmware_revision=\"r2\",version=\"3.1\"} 1\n"),
                 HasSubstr("\ndisk_info_active 1\n")),
           HasSubstr("disk_info: fs userdata: "));
    ExpectValid("metrics");
}

TEST_F(CommandTest, ExitStatusesAndStreams) {
    const Daemon service{SERVICE_PROGRAM};
    const struct {
        Words arguments;
        int status;
        const char* out;
        const char* err;
    } cases[] = {
        {{"power", "--json"}, 0, "{\n  \"schemaVersion\": 1,\n  \"power\": {", ""},
        {{"--timeout", "3600", "fs", "metadata"}, 0, "Last error:          corrupted\n", ""},
        {{}, 3, " yes\n\nFilesystem metadata\n", "/dev/block/mapper/userdata leads to a missing "},
        {{"fs", "cache"}, 3, "", "'cache' is not served; served are userdata and metadata\n"},
        {{"fs"}, 2, "", "fs: PARTITION is missing; it is userdata or metadata\nTry 'disk_info --h"},
        {{"nonsense"}, 2, "", "disk_info: unknown command 'nonsense'\nTry "},
        {{"info", "\x1b"}, 2, "", "disk_info: unexpected argument '\\u001b'\nTry "},
        {{"--nonsense"}, 2, "", "disk_info: invalid option '--nonsense'\nTry "},
        {{"-hx"}, 2, "", "disk_info: invalid option '-x'\nTry "},
        {{"info", "--timeout"}, 2, "", "disk_info: --timeout: a value is missing\nTry "},
        {{"--color=no"}, 2, "", "disk_info: --color: 'no' is not auto, always or never\nTry "},
        {{"--watch", "0"}, 2, "", "--watch: '0' is not a whole number from 1 to 86400\n"},
        {{"--watch", "86401", "--json"}, 2, "", "'86401' is not a whole number from 1 to 86400\n"},
        {{"--timeout", "1s"}, 2, "", "--timeout: '1s' is not a whole number from 1 to 3600\n"},
        {{"--timeout", "3601"}, 2, "", "'3601' is not a whole number from 1 to 3600\n"},
        {{"--watch", "86400", "--json"}, 2, "", "--watch and --json cannot be combined\n"},
        {{"--watch", "1", "metrics"}, 2, "", "--watch and metrics cannot be combined\n"},
        {{"--openmetrics"}, 2, "", "--openmetrics needs the command metrics\n"},
        {{"check"}, 1, "DISK WARNING - V\\ufffd\\u001b[2J\\\" M\\u00e9, UFS: Error count", ""},
        {{"check", "--json"}, 3, "", "--json and check cannot be combined\n"},
        {{"--help"}, 0, "Usage: disk_info [OPTION]... [COMMAND]\n", ""},
        {{"fs", "-h"}, 0, "Usage: disk_info fs [OPTION]... PARTITION\n", ""},
        {{"-V"}, 0, "disk_info 1.", ""},
    };
    const auto contains = [](const char* text) {
        return *text == '\0' ? Text("") : Text(HasSubstr(text));
    };
    for (const auto& c : cases) Expect(c.arguments, c.status, contains(c.out), contains(c.err));
}

TEST_F(CommandTest, AServiceErrorNamesTheMissingLinkOrTheJournal) {
    const Daemon service{SERVICE_PROGRAM};
    unlink("/dev/block/by-name/userdata");
    Expect({}, 3, HasSubstr("Disk: watch: Error count of metadata: 3\n"),
           HasSubstr("disk_info: info, health, power: service error -1: "
                     "/dev/block/by-name/userdata is missing; "));
    WriteFile("/dev/block/by-name/userdata", "");
    Expect({"info"}, 3, "", HasSubstr("; see journalctl -u disk-info.service\n"));
}

TEST_F(CommandTest, ConnectionErrorsHaveAdvice) {
    const Text missing = MatchesRegex(
        "disk_info: cannot connect to [^\n]*: No such file or "
        "directory; [^\n]*: systemctl enable --now disk-info.socket\n");
    Expect({"--json"}, 4, HasSubstr(" \"kind\": \"connection\",\n    \"message\": \"cannot"),
           missing);
    ExpectValid("schema");
    Expect({"check"}, 3, HasSubstr("DISK UNKNOWN - cannot connect to "), "");
    Expect({"metrics"}, 4, HasSubstr("disk_info_up{call=\"health\"} 0\n"), missing);
    const Daemon service{SERVICE_PROGRAM};
    ASSERT_EQ(chmod(kPath, 0), 0);
    const Text denied = HasSubstr(": Permission denied; join the group disk-info ");
    // Root with this capability ignores the mode.
    Expect({"power"}, 4, "", denied, [] { (void)prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE); });
}

TEST_F(CommandTest, TheTimeLimitCoversConnectingAndCalls) {
    const SilentListener listener;
    const Text error = MatchesRegex(
        "disk_info: the service did not answer within 1 s; "
        "[^\n]*disk-info.service[^\n]*\n");
    const auto start = std::chrono::steady_clock::now();
    Expect({"--timeout", "1", "power"}, 4, "", error);  // connects and gets no answer
    // Waits to connect: the first connection still fills the queue.
    Expect({"--timeout", "1", "metrics"}, 4, HasSubstr("disk_info_up{call=\"health\"} 0\n"), error);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
    // The collector keeps its old file after this status.
    EXPECT_EQ(StartOn(kFull, {"--timeout", "1", "metrics"}).Wait(), 1);
}

TEST_F(CommandTest, TheConnectionDoesNotReplaceAClosedOutput) {
    const SilentListener listener;
    Expect({"--timeout", "1", "metrics"}, 1, "", HasSubstr("did not answer"),
           [] { close(STDOUT_FILENO); });
}

TEST_F(CommandTest, KnownFieldsOfAnotherInterfaceAreShown) {
    const OtherService service(ServeLater);
    const Text error = MatchesRegex(
        "disk_info: [^\n]*\\(hash later\\)[^\n]*\ndisk_info: power: [^\n]* [(]status -22[)]; "
        "[^\n]*\n");
    Expect({"--json"}, 3, HasSubstr("\"availableSpare\": 9,"), error);
    ExpectValid("schema");
    Expect({"metrics", "--openmetrics"}, 3, HasSubstr("spare_ratio 0.09\n"), error);
    ExpectValid("openmetrics");
}

TEST_F(CommandTest, MalformedRepliesAreAConnectionError) {
    const OtherService service(ServeMalformed);
    Expect({"--json"}, 4, HasSubstr("malformed"),
           MatchesRegex("disk_info: [^\n]* malformed [^\n]*\n"));
}

TEST_F(CommandTest, ATerminalGetsColouredBarsUnlessTheyAreUnwanted) {
    const OtherService service(ServeLater);
    const char* const plain = "spare:           9 %\r\n";
    const char* const decorated = "[\x1b[31m##\x1b[0m..................] \x1b[31m9 %\x1b[0m\r\n";
    for (const auto& [variable, color, expected] :
         {std::tuple("NO_COLOR=", "auto", decorated), std::tuple("NO_COLOR=1", "auto", plain),
          std::tuple("TERM=dumb", "auto", plain), std::tuple("NO_COLOR=", "never", plain),
          std::tuple("TERM=dumb", "always", decorated)}) {
        EXPECT_EQ(StartOn(kTerminalInside, {"health", "--color", color}, variable).Wait(), 0);
        EXPECT_THAT(ReadUpTo("threshold of 10 %\r\n"), HasSubstr(expected)) << variable << color;
    }
}

TEST_F(CommandTest, OutputThatCannotBeWrittenIsStatus1) {
    const OtherService service(ServeLater);
    for (const Words& words : {Words{"health"}, Words{"health", "--watch", "1"}}) {
        Child command = StartOn(kFull, words);
        EXPECT_EQ(command.Wait(), 1);
        EXPECT_EQ(command.Err(), "disk_info: cannot write the output\n");
    }
}

TEST_F(CommandTest, WatchContinuesAfterErrorsUntilASignal) {
    for (const int signal : {SIGINT, SIGTERM}) {
        std::optional<SilentListener> silent(std::in_place);
        Child command = StartOn(kTerminalInside, {"health", "--watch", "1", "--timeout", "1"});
        EXPECT_THAT(ReadUpTo("did not answer within 1 s; "),
                    testing::StartsWith("\x1b[?1049h\x1b[?25l"));
        ReadUpTo("did not answer within 1 s; ");
        silent.reset();
        ReadUpTo("Connection refused; ");
        {
            const OtherService service(ServeLater);
            EXPECT_THAT(ReadUpTo("are shown\r\n\x1b[J"), testing::Not(HasSubstr("\x1b[?25h")));
        }
        ReadUpTo("Connection refused; ");
        command.Kill(signal);
        EXPECT_EQ(command.Wait(), 0);
        ReadUpTo("\x1b[?25h\x1b[?1049l");
    }
}

TEST_F(CommandTest, WatchDrawsAgainAfterAResizeAndAStop) {
    const OtherService service(ServeLater);
    Child command = StartOn(kTerminalInside, {"power", "--watch", "86400"});
    ReadUpTo("are shown\r\n\x1b[Kdisk_info: power: ");
    ReadUpTo("\x1b[J");
    command.Kill(SIGWINCH);
    ReadUpTo("\x1b[J");
    command.Kill(SIGTSTP);
    ReadUpTo("\x1b[?1049l");
    EXPECT_TRUE(Eventually([&] {
        command.Kill(SIGCONT);
        pollfd ready{kTerminal, POLLIN, 0};
        return poll(&ready, 1, 0) == 1;
    }));
    ReadUpTo("\x1b[?1049h\x1b[?25l");
    ReadUpTo("\x1b[J");
}

// The last fields of each answer, which are right only if all before them were decoded.
TEST_F(CommandTest, TheExampleClientDecodesEveryAnswer) {
    const Daemon service{SERVICE_PROGRAM};
    const struct {
        Words words;
        int status;
        const char* text;
    } cases[] = {
        {{"info"}, 0, "\"dataLanes\": \"2\",\n    \"size\": 0\n"},
        {{"health"},
         0,
         "\"totalNumberOfErrors\": 9007199254740993,\n    \"discardReadValue\": \"0\"\n"},
        {{"power"}, 0, "\"linkState\": \"ACTIVE\",\n    \"isActive\": true\n"},
        {{"fs", "metadata"}, 0, "\"lastErrorCode\": 5,\n  \"sysfsPath\": \"/sys/fs/ext4/sda1\"\n"},
        {{"hash"}, 0, IDiskInfoService::hash},
        {{"version"}, 0, "1\n"},
        {{"fs", "userdata"}, 1, "service error -1\n"},
        {{"fs", "cache"}, 1, "exception -3\n"},
    };
    for (const auto& c : cases) {
        Words words{"/usr/bin/python3", EXAMPLE_CLIENT};
        words.insert(words.end(), c.words.begin(), c.words.end());
        Child client(words, "/run/client");
        EXPECT_EQ(client.Wait(), c.status);
        EXPECT_THAT(client.Out() + client.Err(), HasSubstr(c.text)) << c.words.back();
    }
}

TEST_F(CommandTest, ASecondDaemonExitsAndTheFirstContinues) {
    const Daemon first{SERVICE_PROGRAM};
    Child second({SERVICE_PROGRAM}, "/run/second");
    EXPECT_EQ(second.Wait(), 1);
    EXPECT_THAT(second.Err(),
                MatchesRegex("ERROR DiskInfoService storage/[a-z_/]*/main.cpp:[0-9]+: "
                             "Failed to register lazy service: -17\n"));
    Expect({"power"}, 0, HasSubstr("Link state"), "");
}

}  // namespace
