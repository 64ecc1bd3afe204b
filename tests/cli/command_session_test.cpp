// The command with a service of another interface, and on a terminal.
#include <binder/parcel_utils.h>
#include <binder/process.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <output_check.h>
#include <poll.h>
#include <scripted_service.h>
#include <silent_listener.h>
#include <sys/ioctl.h>

#include <csignal>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <vector>

using namespace morsk::com::quendar::tavisk::disk_info;
using testing::HasSubstr;
using testing::Not;

namespace {

// A later version: another hash, and a kind of disk in one answer that nobody knows yet.
class LaterService : public ScriptedService {
  public:
    LaterService() {
        info = NvmeInfoParcel{"NVMe", "\"}\\\n\xff\x1b", "", "", 0, 0, 0, false, 5};
        health = NvmeHealthInfoParcel{.availableSpare = 9,
                                      .availableSpareThreshold = 10,
                                      .dataUnitsWritten = -1,
                                      .discardReadValue = "0"};
        filesystem = FilesystemInfoParcel();
    }
    // The body of a child.
    static void Serve(bool malformed) {
        const auto service = SharedRefBase::make<LaterService>();
        malformed_ = malformed;
        if (AServiceManager_registerLazyService(service->asBinder().get(), kInstance) ==
            STATUS_OK) {
            ABinderProcess_joinThreadPool();
        }
    }

  protected:
    binder::StrongBinder createBinder() override {
        static AIBinder_Class* const clazz =
            AIBinder_Class_define("later", binder::ICInterfaceData::onCreate,
                                  binder::ICInterfaceData::onDestroy, LaterService::Transact);
        return binder::StrongBinder(AIBinder_new(clazz, static_cast<ICInterface*>(this)));
    }

  private:
    static binder_status_t Transact(AIBinder* binder, transaction_code_t code,
                                    const AParcel* request, AParcel* reply) {
        if (malformed_) return AParcel_writeInt64(reply, 0x700000000);
        if (code != kGetInterfaceHash && code != kGetDiskPower) {
            return onTransact(binder, code, request, reply);
        }
        (void)AParcel_writeInt32(reply, EX_NONE);
        if (code == kGetInterfaceHash) return AParcel_writeData(reply, std::string("later"));
        (void)AParcel_writeInt32(reply, 1);
        return AParcel_writeInt32(reply, 2);  // the tag of the third kind
    }
    static inline bool malformed_ = false;
};

// Made before the tests lose sight of /dev.
const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
const int terminal_inside =
    unlockpt(terminal) == 0 ? ioctl(terminal, TIOCGPTPEER, O_RDWR | O_NOCTTY | O_CLOEXEC) : -1;

class CommandSessionTest : public PrivateRootTest {
  protected:
    static Child Start(bool malformed = false) {
        Child service([&] { LaterService::Serve(malformed); });
        AwaitService();
        return service;
    }
    static Child OnTerminal(std::vector<const char*> words, const char* no_color) {
        words.insert(words.begin(), COMMAND_PROGRAM);
        words.push_back(nullptr);
        return Child([&] {
            setenv("NO_COLOR", no_color, 1);
            dup2(terminal_inside, 1);
            dup2(open("/dev/null", O_WRONLY), 2);
            execv(words[0], const_cast<char* const*>(words.data()));
        });
    }
    // Reads on from the terminal up to `text`; what was read, as far as it came in 10 seconds.
    static std::string ReadUpTo(const std::string& text) {
        std::string read;
        EXPECT_TRUE(Eventually([&] {
            pollfd ready{terminal, POLLIN, 0};
            char c = 0;
            while (!read.ends_with(text) && poll(&ready, 1, 0) == 1) {
                if (::read(terminal, &c, 1) == 1) read += c;
            }
            return read.ends_with(text);
        })) << "instead: "
            << read;
        return read;
    }
};

TEST_F(CommandSessionTest, OfAnotherInterfaceItShowsWhatIsKnown) {
    const Child service = Start();
    for (const char* form : {"--json", "metrics"}) {
        Child command({COMMAND_PROGRAM, form}, "/run/command");
        EXPECT_EQ(command.Wait(), 3);
        EXPECT_THAT(command.err(),
                    testing::MatchesRegex("disk_info: [^\n]*\\(hash later\\)[^\n]*\n"
                                          "disk_info: power: reply error -22; [^\n]*\n"));
        const bool json = form[0] == '-';
        EXPECT_THAT(command.out(),
                    HasSubstr(json ? "\"availableSpare\": 9," : "spare_ratio 0.09\n"));
        EXPECT_EQ(FaultsOf(command.out(), json ? std::vector<std::string>{"schema", SCHEMA_FILE}
                                               : std::vector<std::string>{"metrics"}),
                  "");
    }
}

TEST_F(CommandSessionTest, AServiceWithMalformedRepliesIsNoService) {
    const Child service = Start(true);
    Child command({COMMAND_PROGRAM, "--json"}, "/run/command");
    EXPECT_EQ(command.Wait(), 4);
    EXPECT_EQ(command.out(), "");
    EXPECT_THAT(command.err(), testing::MatchesRegex("disk_info: [^\n]* malformed reply [^\n]*\n"));
}

TEST_F(CommandSessionTest, ATerminalGetsBarsUnlessColourIsRefused) {
    const Child service = Start();
    for (const char* no_color : {"", "1"}) {
        Child command = OnTerminal({"health"}, no_color);
        EXPECT_EQ(command.Wait(), 0);
        EXPECT_THAT(ReadUpTo("threshold of 10 %\r\n"),
                    HasSubstr(*no_color == '\0' ? " [\x1b[31m##\x1b[0m..................] 9 %\r\n"
                                                : "spare:           9 %\r\n"));
    }
}

TEST_F(CommandSessionTest, WatchGoesOnUntilItIsInterrupted) {
    for (const int signal : {SIGINT, SIGTERM}) {
        auto silent = std::make_unique<SilentListener>();
        Child command = OnTerminal({"health", "--watch", "1", "--timeout", "1"}, "");
        EXPECT_THAT(ReadUpTo("did not answer within 1 s; "), testing::StartsWith("\x1b[?25l"));
        ReadUpTo("did not answer within 1 s; ");
        silent.reset();
        ReadUpTo("Connection refused; ");
        {
            const Child service = Start();
            EXPECT_THAT(ReadUpTo("are shown\x1b[K\r\n\x1b[J"), Not(HasSubstr("\x1b[?25h")));
        }
        ReadUpTo("Connection refused; ");
        command.Kill(signal);
        EXPECT_EQ(command.Wait(), 0);
        ReadUpTo("\x1b[?25h\r\n");
    }
}

}  // namespace
