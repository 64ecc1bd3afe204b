// What clients can make the daemon write: bounded in number and size, one line each, and never
// waited for.
#include <daemon.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/close_range.h>
#include <log_capture.h>
#include <service/record_limit.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

using namespace morsk::com::quendar::tavisk::disk_info;
using namespace std::chrono_literals;
using namespace std::string_literals;
using testing::ElementsAre;
using testing::MatchesRegex;

namespace {

TEST(RecordLimitTest, FiftyInThirtySecondsAndOneSaysHowManyMoreThereWere) {
    LogCapture log;
    RecordLimit limit;
    const auto admitted = [&](std::chrono::milliseconds now, int count) {
        int result = 0;
        for (int i = 0; i < count; ++i) result += limit.Admit(now);
        return result;
    };
    EXPECT_EQ(admitted(1s, 20), 20);
    EXPECT_EQ(admitted(29s, 29), 29);
    EXPECT_EQ(admitted(31s, 20), 20);  // as many as are 30 seconds old
    EXPECT_EQ(admitted(60'999ms, 100), 29);
    EXPECT_EQ(admitted(90'998ms, 1), 0);
    EXPECT_THAT(log.Take(), ElementsAre());
    EXPECT_EQ(admitted(90'999ms, 100), 48);
    EXPECT_THAT(log.Take(), ElementsAre("W Suppressed records, those above 50 in 30 seconds: 72"));
    limit.ReportSuppressed();
    EXPECT_THAT(log.Take(), ElementsAre("W Suppressed records, those above 50 in 30 seconds: 52"));
    limit.ReportSuppressed();
    EXPECT_THAT(log.Take(), ElementsAre());
}

using RecordsTest = PrivateRootTest;

// The body of a child: the daemon with `error` as its standard error and no other stream, as
// systemd starts it.
void Serve(int listener, int error) {
    dup2(error, 2);
    dup2(listener, 3);
    close(0);
    close(1);
    close_range(4, ~0U, 0);
    setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
    setenv("LISTEN_FDS", "1", 1);
    execl(SERVICE_PROGRAM, SERVICE_PROGRAM, nullptr);
}

// Each kind of name that is refused, 60 kB of what is no text; the refusals' number.
int SendBadNames(int count) {
    std::string junk;
    while (junk.size() < 60'000) junk += "\n<0>forged\x1b[2J\x9b\xc2\x9b";
    const std::string names[] = {"\0"s + junk, "sd\0data"s + junk, "data" + junk + '\0'};
    const auto service = ConnectToService();
    int refused = 0;
    for (int i = 0; i < count && service; ++i) {
        std::optional<FilesystemInfoParcel> info;
        const binder::ScopedStatus status = service->getFilesystemInfo(names[i % 3], &info);
        refused += AStatus_getExceptionCode(status.get()) ==
                   (i % 3 == 2 ? EX_SERVICE_SPECIFIC : EX_ILLEGAL_ARGUMENT);
    }
    return refused;
}

bool IsNonBlocking(const std::string& description) {
    std::ifstream info(description);
    std::string word;
    while (info >> word && word != "flags:") {
    }
    int flags = 0;
    info >> std::oct >> flags;
    return (flags & O_NONBLOCK) != 0;
}

TEST_F(RecordsTest, TwoHundredBadNamesAreFiftyLinesAndNoneIsWaitedFor) {
    const int listener = socket(AF_UNIX, SOCK_SEQPACKET, 0);
    sockaddr_un address{AF_UNIX, ""};
    std::strcpy(address.sun_path, kPath);
    MakeDirectory(std::filesystem::path(kPath).parent_path());
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(listener, 9), 0);
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const int size = fcntl(ends[0], F_GETPIPE_SZ);
    std::string bytes(size, '*');
    ASSERT_EQ(write(ends[1], bytes.data(), size), size);
    {
        const Child stuck([&] { Serve(listener, ends[1]); });
        EXPECT_EQ(SendBadNames(200), 200);
        const std::string process = "/proc/" + std::to_string(stuck.pid());
        EXPECT_EQ(std::filesystem::read_symlink(process + "/fd/0"), "/dev/null");
        EXPECT_EQ(std::filesystem::read_symlink(process + "/fd/1"), "/dev/null");
        EXPECT_TRUE(IsNonBlocking(process + "/fdinfo/2"));
        EXPECT_FALSE(IsNonBlocking("/proc/self/fdinfo/" + std::to_string(ends[1])));
    }
    ASSERT_EQ(read(ends[0], bytes.data(), size), size);

    Child heard([&] { Serve(listener, ends[1]); });
    EXPECT_EQ(SendBadNames(200), 200);
    EXPECT_EQ(heard.Wait(), 0);  // idle
    close(ends[1]);
    close(listener);
    FILE* const records = fdopen(ends[0], "r");
    std::vector<std::string> lines;
    for (char line[2048]; fgets(line, sizeof line, records) != nullptr;) lines.push_back(line);
    fclose(records);
    ASSERT_EQ(lines.size(), 50U);
    EXPECT_THAT(lines.back(), MatchesRegex("WARNING DiskInfoService .*: Suppressed records, those "
                                           "above 50 in 30 seconds: 151\n"));
    lines.pop_back();
    for (const std::string& line : lines) {
        EXPECT_LE(line.size(), 1024U);
        EXPECT_THAT(line, MatchesRegex("(ERROR DiskInfoService .*:[0-9]+: |sysfs path)[ -~]*"
                                       "\\\\n<0>forged\\\\x1b\\[2J[ -~]*\\.\\.\\.\n"));
    }
}

}  // namespace
