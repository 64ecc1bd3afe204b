// Records: their content, when they are built, and that foreign text cannot forge one.
#include <base/escape.h>
#include <base/unique_fd.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <log_capture.h>
#include <logging/logging.h>
#include <private_root.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string>
#include <utility>
#include <vector>

using namespace std::string_literals;
using testing::ElementsAre;
using testing::MatchesRegex;

namespace {

TEST(LoggingTest, AdmittedRecordsAreTheirPiecesAndPreserveErrno) {
    LogCapture capture;
    int built = 0;
    errno = ENOENT;
    LOG(DEBUG) << ++built;
    LOG(INFO) << "a" << std::string("b") << -3 << '|' << 4U << uint64_t{18446744073709551615U};
    PLOG(ERROR) << "open " << ++built << "\0c"s;
    logging::SetMinimumLogSeverity(logging::ERROR);
    if (built == 1)
        LOG(WARNING) << ++built;
    else
        FAIL() << "the else belongs to the macro";
    LOG(ERROR) << ++built;
    EXPECT_EQ(errno, ENOENT);
    EXPECT_THAT(capture.Take(), ElementsAre("I ab-3|418446744073709551615",
                                            "E open 1\\x00c: No such file or directory", "E 2"));
    logging::SetMinimumLogSeverity(logging::INFO);
}

TEST(EscapeTest, ControlCharactersAndBackslashesAreEscaped) {
    const std::pair<std::string, std::string> cases[] = {
        {"é À \u00a0\U0010ffff <0>", "é À \u00a0\U0010ffff <0>"},
        {"\xff\xc3", "\xff\xc3"},  // invalid UTF-8 without a control character
        {"a\nERROR b\r\x1b[2J\x7f", "a\\nERROR b\\x0d\\x1b[2J\\x7f"},
        {"user\0data"s, "user\\x00data"},
        {"\\n", "\\\\n"},
        {"\x9b\xc2\x9b\xe2\x82\x9b\xe2\x9b", "\\x9b\\xc2\\x9b\xe2\x82\x9b\xe2\\x9b"},
        // a surrogate, an overlong newline, a value above U+10FFFF
        {"\xed\xa0\x80\xc0\x8a\xf4\x90\x80\x80", "\xed\xa0\\x80\xc0\\x8a\xf4\\x90\\x80\\x80"},
    };
    for (const auto& [text, escaped] : cases) {
        EXPECT_EQ(base::Escaped(text), escaped);
        EXPECT_EQ(base::EscapedControls(escaped), escaped);
    }
}

TEST(EscapeTest, LongTextIsCutBetweenCharactersAndEscapes) {
    const std::pair<std::string, std::string> cases[] = {
        {"0123456789", "0123456789"},      {"0123456789a", "0123456..."},
        {"012345é789", "012345..."},       {"01234é6789", "01234é..."},
        {"0123\\x1b89a", "0123..."},       {"012345\\n89a", "012345..."},
        {"01234\\\\789a", "01234\\\\..."},
    };
    for (auto [text, cut] : cases) {
        base::CutTo(10, &text);
        EXPECT_EQ(text, cut);
    }
}

base::UniqueFd StartLogDaemon() {
    unlink("/dev/log");
    base::UniqueFd daemon(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const sockaddr_un address{AF_UNIX, "/dev/log"};
    EXPECT_EQ(bind(daemon.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    return daemon;
}

TEST(LoggingTest, RecordsGoToTheLogDaemonOrToStandardError) {
    ASSERT_NO_FATAL_FAILURE(EnterPrivateRoot());  // without /dev/log
    logging::InitLogging(nullptr, logging::LogdLogger(logging::MAIN));
    logging::SetDefaultTag("Tag");
    const std::string place = "tests/unit/logging_test.cpp:[0-9]+: ";
    errno = 0;
    testing::internal::CaptureStderr();
    LOG(ERROR) << "a\nERROR b\xc2\x9b\\";
    EXPECT_EQ(errno, 0);
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                MatchesRegex("ERROR Tag " + place + "a\\\\nERROR b\\\\xc2\\\\x9b\\\\\n"));
    for (int start = 0; start < 2; ++start) {  // The daemon starts late and restarts.
        const base::UniqueFd daemon = StartLogDaemon();
        char record[2048] = {};
        LOG(ERROR) << "a\nb";
        EXPECT_GT(recv(daemon.get(), record, sizeof(record) - 1, MSG_DONTWAIT), 0);
        EXPECT_THAT(record, MatchesRegex("<27>Tag\\[[0-9]+\\]: " + place + "a\\\\nb"));
        LOG(ERROR) << std::string(70'000, 'x');
        EXPECT_EQ(recv(daemon.get(), record, sizeof(record), MSG_DONTWAIT), 1024);
        EXPECT_THAT(record, testing::EndsWith("x..."));
    }
    const base::UniqueFd full = StartLogDaemon();
    testing::internal::CaptureStderr();
    for (int i = 0; i < 1000; ++i) LOG(ERROR) << "not read";
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::EndsWith("not read\n"));
    unlink("/dev/log");
}

// The descriptors are blocking, as a socket or pipe shared with other processes can be.
TEST(LoggingTest, AFullBrokenOrClosedStandardErrorNeitherBlocksNorKills) {
    ASSERT_NO_FATAL_FAILURE(EnterPrivateRoot());
    logging::InitLogging(nullptr, logging::LogdLogger(logging::MAIN));
    const base::UniqueFd kept(dup(STDERR_FILENO));
    for (const bool is_pipe : {true, false}) {
        int ends[2];
        ASSERT_EQ(is_pipe ? pipe(ends) : socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        dup2(ends[1], STDERR_FILENO);
        for (int i = 0; i < 1000; ++i) LOG(ERROR) << std::string(2000, 'x');
        close(ends[0]);
        LOG(ERROR) << "broken";
        close(ends[1]);
        close(STDERR_FILENO);
        LOG(ERROR) << "closed";
        dup2(kept.get(), STDERR_FILENO);
    }
}

TEST(LoggingTest, FatalRecordsRunTheAborter) {
    const auto exit_with_message = [](const char* message) { _exit(message[0]); };
    EXPECT_EXIT(LOG(FATAL) << "x", testing::KilledBySignal(SIGABRT), "");
    const auto ignore = [](auto...) {};
    logging::InitLogging(nullptr, ignore, exit_with_message);
    EXPECT_EXIT(LOG(FATAL) << "*", testing::ExitedWithCode('*'), "");
}

}  // namespace
