// Records as the logger gets them, as lines on standard error and as messages to a log daemon.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <logging/logging.h>
#include <private_root.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

using logging::InitLogging;
using testing::ElementsAre;
using testing::MatchesRegex;

namespace {

class LoggingTest : public testing::Test {
  protected:
    LoggingTest() {
        const auto take = [this](logging::LogId, logging::LogSeverity severity, const char* tag,
                                 const char* file, unsigned int line, const char* message) {
            EXPECT_STREQ(file, __FILE__);
            records_.push_back(std::to_string(severity) + '|' + tag + '|' + message);
            line_ = line;
            errno = ENOSPC;
        };
        InitLogging(nullptr, take, [this](const char* message) { records_.emplace_back(message); });
        logging::SetDefaultTag("tag");
    }
    ~LoggingTest() override {
        logging::SetMinimumLogSeverity(logging::INFO);
        InitLogging(nullptr, [](auto...) {});
    }
    std::vector<std::string> records_;
    unsigned int line_ = 0;
};

TEST_F(LoggingTest, RecordCarriesSeverityTagPlaceAndPieces) {
    const unsigned int line = __LINE__ + 1;
    LOG(ERROR) << std::string("text") << -42 << 'c' << UINT64_MAX << std::string_view(" .");
    EXPECT_EQ(line_, line);
    LOG(WARNING) << "";
    EXPECT_THAT(records_, ElementsAre("4|tag|text-42c18446744073709551615 .", "3|tag|"));
}

TEST_F(LoggingTest, ErrnoIsNamedAndKept) {
    errno = EACCES;
    PLOG(ERROR) << "open" << (errno = ENOENT);
    EXPECT_EQ(errno, EACCES);
    LOG(ERROR) << "plain";
    EXPECT_EQ(errno, EACCES);
    EXPECT_THAT(records_, ElementsAre("4|tag|open2: Permission denied", "4|tag|plain"));
}

TEST_F(LoggingTest, FilteredRecordsEvaluateNothing) {
    const struct {
        logging::LogSeverity minimum;
        size_t logged;  // of the five below
    } cases[] = {
        {logging::VERBOSE, 5}, {logging::INFO, 3}, {logging::ERROR, 1}, {logging::FATAL, 0}};
    for (const auto& c : cases) {
        logging::SetMinimumLogSeverity(c.minimum);
        size_t evaluated = 0;
        LOG(VERBOSE) << ++evaluated;
        LOG(DEBUG) << ++evaluated;
        LOG(INFO) << ++evaluated;
        PLOG(WARNING) << ++evaluated;
        LOG(ERROR) << ++evaluated;
        EXPECT_EQ(evaluated, c.logged);
        EXPECT_EQ(std::exchange(records_, {}).size(), c.logged);
    }
}

TEST_F(LoggingTest, FatalRecordIsWrittenBeforeTheAborterRuns) {
    LOG(FATAL) << "end";
    EXPECT_THAT(records_, ElementsAre("5|tag|end", "end"));
}

void LogOne(const char* text) {
    InitLogging(nullptr, logging::LogdLogger());
    logging::SetDefaultTag("tag");
    LOG(ERROR) << text;
}

using LogdLoggerTest = PrivateRootTest;

TEST_F(LogdLoggerTest, WithoutALogDaemonARecordIsOneLineOnStandardError) {
    testing::internal::CaptureStderr();
    LogOne("a\nb\x1b[0m\x7f\xc3\xa9\\");
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                MatchesRegex("ERROR tag [^ ]*logging_test.cpp:[0-9]+: "
                             "a\\\\nb\\\\x1b\\[0m\\\\x7f\xc3\xa9\\\\\n"));
}

TEST_F(LogdLoggerTest, ALogDaemonGetsPriorityTagPlaceAndText) {
    const int daemon = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address{AF_UNIX, "/dev/log"};
    ASSERT_EQ(bind(daemon, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    LogOne("a\nb");
    char record[512] = {};
    EXPECT_GT(recv(daemon, record, sizeof record - 1, MSG_DONTWAIT), 0);
    EXPECT_THAT(record, MatchesRegex("<27>.* tag\\[[0-9]+\\]: [^ ]*logging_test.cpp:[0-9]+: "
                                     "a\\\\nb"));
    close(daemon);
    unlink("/dev/log");
}

using LoggingDeathTest = PrivateRootTest;

TEST_F(LoggingDeathTest, DefaultAborterEndsTheProcess) {
    const auto fatal = [] {
        InitLogging(nullptr, logging::LogdLogger());
        LOG(FATAL) << "end";
    };
    EXPECT_EXIT(fatal(), testing::KilledBySignal(SIGABRT), "FATAL .*: end");
}

}  // namespace
