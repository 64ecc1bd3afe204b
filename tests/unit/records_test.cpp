// Records that clients can make the daemon write: limited in number and size, one line each, never
// blocking.
#include <daemon.h>
#include <gmock/gmock.h>
#include <linux/close_range.h>
#include <log_capture.h>
#include <raw_socket.h>
#include <service/record_limit.h>

#include <algorithm>
#include <chrono>
#include <optional>

using namespace morsk::com::quendar::tavisk::disk_info;
using namespace std::chrono_literals;
using namespace std::string_literals;
using testing::ElementsAre;
using testing::MatchesRegex;

namespace {

TEST(RecordLimitTest, TwentyFiveInThirtySecondsIncludingOneWithTheNumberSuppressed) {
    LogCapture log;
    RecordLimit limit;
    const auto admitted = [&](std::chrono::milliseconds now, int count) {
        int result = 0;
        for (int i = 0; i < count; ++i) result += limit.Admit(now);
        return result;
    };
    EXPECT_EQ(admitted(1s, 10), 10);
    EXPECT_EQ(admitted(29s, 14), 14);
    EXPECT_EQ(admitted(31s, 10), 10);  // those of second 1 have expired
    EXPECT_EQ(admitted(60'999ms, 100), 14);
    EXPECT_EQ(admitted(90'998ms, 1), 0);
    EXPECT_THAT(log.Take(), ElementsAre());
    EXPECT_EQ(admitted(90'999ms, 100), 23);
    EXPECT_THAT(log.Take(), ElementsAre("W Suppressed 87 records: the limit is 25 in 30 seconds"));
    limit.ReportSuppressed();
    limit.ReportSuppressed();
    EXPECT_THAT(log.Take(), ElementsAre("W Suppressed 77 records: the limit is 25 in 30 seconds"));
}

using RecordsTest = PrivateRootTest;

// Body of a child: executes the daemon with the socket from the service manager and with `error` as
// standard error. Standard input and output are closed.
void ServeHanded(const RawSocket& listener, int error) {
    dup2(error, 2);
    HandOver(listener.Fd());
    close(0);
    close(1);
    close_range(4, ~0U, 0);
    execl(SERVICE_PROGRAM, SERVICE_PROGRAM, nullptr);
}

TEST_F(RecordsTest, BadNamesAndAFullStandardErrorDoNotStopTheDaemon) {
    const RawSocket listener(kPath);
    ASSERT_NO_FATAL_FAILURE(listener.Listen());
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    ASSERT_EQ(fcntl(ends[1], F_SETPIPE_SZ, 8192), 8192);
    Child daemon([&] { ServeHanded(listener, ends[1]); });

    std::string junk;
    while (junk.size() < 60'000) junk += "\n<0>forged\x1b[2J\x9b\xc2\x9b";
    const std::string names[] = {"\0"s + junk, "sd\0data"s + junk, "data" + junk + '\0'};
    for (int i = 0; i < 200; ++i) {
        std::optional<FilesystemInfoParcel> info;
        const auto status = ConnectToService()->getFilesystemInfo(names[i % 3], &info);
        ASSERT_NE(AStatus_getExceptionCode(status.get()), EX_TRANSACTION_FAILED);
    }
    const std::string process = "/proc/" + std::to_string(daemon.Pid());
    EXPECT_EQ(std::filesystem::read_symlink(process + "/fd/0"), "/dev/null");
    EXPECT_EQ(std::filesystem::read_symlink(process + "/fd/1"), "/dev/null");
    std::string flags;
    std::getline(std::ifstream(process + "/fdinfo/2").ignore(99, '\n'), flags);
    EXPECT_THAT(flags, MatchesRegex("flags:.*4001"));  // O_NONBLOCK and O_WRONLY
    EXPECT_EQ(fcntl(ends[1], F_GETFL) & O_NONBLOCK, 0)
        << "the shared description must stay blocking";

    // The pipe holds the first records; the next one is the WARNING when the idle daemon exits.
    const auto take = [&] {
        char bytes[8192];
        return std::string(bytes,
                           static_cast<size_t>(std::max(ssize_t{0}, read(ends[0], bytes, 8192))));
    };
    const std::string records = take();
    const std::string name = "[ -~]*\\\\n<0>forged\\\\x1b\\[2J[ -~]*\\.\\.\\.\n";
    const std::string error = "ERROR DiskInfoService " + name, path = "sysfs path " + name;
    EXPECT_THAT(records, MatchesRegex("(" + error + error + path + ")+(" + error + "){0,2}"));
    EXPECT_LE(std::ssize(records), 1024 * std::ranges::count(records, '\n'));
    close(ends[1]);
    EXPECT_EQ(daemon.Wait(), 0);
    EXPECT_THAT(take(), MatchesRegex("WARNING DiskInfoService .* Suppressed 176 records: .*\n"));
}

}  // namespace
