// The command as a process, on a device made of files: its exit status and its outputs.
#pragma once

#include <daemon.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/ioctl.h>

#include <functional>
#include <string>
#include <vector>

class CommandTest : public PrivateRootTest {
  protected:
    using Words = std::vector<std::string>;
    using Text = testing::Matcher<std::string>;

    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(PrivateRootTest::SetUp());
        PlaceDevice();
        const std::string unit = kUnit;
        // Untrusted text: invalid UTF-8, an escape sequence, a quote.
        WriteFile(unit + "/vendor", "V\xff\x1b[2J\"\n");
        WriteFile(unit + "/model", "M\xc3\xa9\n");
        WriteFile(unit + "/ioerr_cnt", "0x20000000000001\n");       // 2^53 + 1
        WriteFile(unit + "/block/sda/size", "2111062325329920\n");  // ten times its buffer
        WriteFile(std::string(kController) + "/geometry_descriptor/wb_max_alloc_units",
                  "0xffffffff\n");
        WriteLink("/dev/block/mapper/userdata", "elsewhere");
    }

    // Runs the command to its end; standard output is kept in out_.
    void Expect(
        Words words, int status, const Text& out, const Text& err,
        const std::function<void()>& prepare = [] {}) {
        SCOPED_TRACE(testing::PrintToString(words));
        words.insert(words.begin(), COMMAND_PROGRAM);
        Child command(words, "/run/command", prepare);
        EXPECT_EQ(command.Wait(), status);
        EXPECT_THAT(out_ = command.Out(), out);
        EXPECT_THAT(command.Err(), err);
    }

    // Checks out_ with check_output.py: "schema", "metrics" or "openmetrics".
    void ExpectValid(const std::string& form) {
        WriteFile("/run/output", out_);
        Child checker({"/usr/bin/python3", OUTPUT_CHECKER, form, SCHEMA_FILE}, "/run/checker",
                      [] { dup2(open("/run/output", O_RDONLY), 0); });
        EXPECT_EQ(checker.Wait(), 0) << checker.Err();
    }

    // Starts the command with `output` as its standard output.
    static Child StartOn(int output, Words words, const char* variable = "NO_COLOR=") {
        WriteLink("/run/started.out", "/proc/self/fd/" + std::to_string(output));
        words.insert(words.begin(), COMMAND_PROGRAM);
        return Child(words, "/run/started", [=] {
            setenv("TERM", "xterm", 1);  // The tests may run in another terminal.
            putenv(const_cast<char*>(variable));
        });
    }

    // Reads from the terminal until `text` arrives; fails if it does not.
    static std::string ReadUpTo(const std::string& text) {
        std::string read;
        EXPECT_TRUE(Eventually([&] {
            pollfd ready{kTerminal, POLLIN, 0};
            char c = 0;
            while (!read.ends_with(text) && poll(&ready, 1, 0) == 1) {
                if (::read(kTerminal, &c, 1) == 1) read += c;
            }
            return read.ends_with(text);
        })) << "expected: "
            << text << "\nread: " << read;
        return read;
    }

    // Opened before the tests hide /dev.
    static inline const int kFull = open("/dev/full", O_WRONLY | O_CLOEXEC);
    static inline const int kTerminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    static inline const int kTerminalInside =
        unlockpt(kTerminal) == 0 ? ioctl(kTerminal, TIOCGPTPEER, O_RDWR | O_NOCTTY | O_CLOEXEC)
                                 : -1;
    std::string out_;
};
