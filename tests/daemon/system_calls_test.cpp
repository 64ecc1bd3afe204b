// The daemon's system calls: which ones it makes for one client call, and what the client receives
// if one of them fails. strace injects the faults into the running daemon: each call fails once
// with EIO, EINTR and ENOENT, and the first of each kind also with the other errors.
//
// The device is made of files; in an emulated device, where DISK_INFO_DEVICE is set, it is the
// disk.
#include <answers.h>
#include <daemon.h>
#include <raw_socket.h>
#include <sys/syscall.h>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

using namespace std::chrono_literals;
using namespace std::string_literals;

namespace {

const bool kInDevice = getenv("DISK_INFO_DEVICE") != nullptr;
// The names of two calls depend on the architecture.
#ifdef __NR_epoll_wait
const std::string kWait = "epoll_wait", kReadLink = "readlink";
#else
const std::string kWait = "epoll_pwait", kReadLink = "readlinkat";
#endif

// The first call of each kind in a run fails with each of these errors, later ones with the first
// three.
constexpr const char* kErrors[] = {"EIO",    "EINTR",  "ENOENT", "EAGAIN",
                                   "ENOMEM", "EACCES", "ENODEV"};

// Makes a call on a new connection.
std::string Ask(const std::string& question) {
    const auto service = ConnectToService();
    return service ? ::Ask(*service, question) : kBroken;
}

// Whether each field is that of `whole` or neutral.
bool IsPartOf(const std::string& answer, const std::string& whole) {
    std::istringstream fields(answer + '|'), full_fields(whole + '|');
    for (std::string field, full; std::getline(full_fields, full, '|');) {
        constexpr std::string_view kNeutral[] = {"", "0", "-1", "undefined"};
        if (!std::getline(fields, field, '|')) return false;
        if (field != full && std::ranges::count(kNeutral, field) == 0) return false;
    }
    return true;
}

std::map<std::string, int> Count(const std::vector<std::string>& lines) {
    std::map<std::string, int> counts;
    for (const std::string& line : lines) ++counts[line.substr(0, line.find('('))];
    return counts;
}

class SystemCallsTest : public PrivateRootTest {
  protected:
    using Lines = std::vector<std::string>;

    void SetUp() override {
        if (!kInDevice) {
            ASSERT_NO_FATAL_FAILURE(PrivateRootTest::SetUp());
            PlaceDevice();
        }
        daemon_.emplace(kInDevice ? "/bin/disk_info_service" : SERVICE_PROGRAM);
        AwaitNoClient();
    }
    // The daemon has three standard streams, the socket and epoll.
    void AwaitNoClient() {
        ASSERT_TRUE(Eventually([&] { return Vitals(daemon_->Pid()).descriptors == 5; }));
    }

    Child AttachStrace(const std::vector<std::string>& options) {
        std::vector<std::string> words{"/usr/bin/strace", "-o", "/run/trace", "-p",
                                       std::to_string(daemon_->Pid())};
        words.insert(words.end(), options.begin(), options.end());
        unlink("/run/strace.err");
        Child strace(words, "/run/strace");
        EXPECT_TRUE(Eventually([&] { return strace.Err().find(" attached") != std::string::npos; }))
            << strace.Err();
        return strace;
    }
    // The system calls during `ask` and until its connection is closed.
    template <typename Asking>
    Lines Trace(const std::vector<std::string>& options, Asking&& ask) {
        Child strace = AttachStrace(options);
        ask();
        AwaitNoClient();
        strace.Kill(SIGINT);  // detaches
        (void)strace.Wait();
        Lines lines;
        std::ifstream trace("/run/trace");
        for (std::string line; std::getline(trace, line);) lines.push_back(line);
        return lines;
    }

    void FailOnce(const std::string& question, const std::string& call, int n, const char* error) {
        SCOPED_TRACE(question + ": " + call + " " + std::to_string(n) + " fails with " + error);
        const std::string& whole = answers_.at(question);
        std::string answer;
        const Lines lines = Trace({"-etrace=" + call, "-einject=" + call + ":error=" + error +
                                                          ":when=" + std::to_string(n)},
                                  [&] { answer = Ask(question); });
        std::string failed;
        for (const std::string& line : lines) {
            if (line.find("(INJECTED)") != std::string::npos) failed = line;
        }
        // The last wait may begin after strace detached. Records that exceed their limit are not
        // sent.
        ASSERT_TRUE(!failed.empty() || call == kWait || (call == "sendto" && n > 1));
        faults_ += !failed.empty();
        const auto has = [&](const char* text) { return failed.find(text) != std::string::npos; };
        const bool interrupted = has("EINTR") && !has("/dev/block/nvme") && !has("NVME_");
        if (has("epoll_ctl") || has("getsockopt") ||
            (!interrupted && (has("\"BirP") || (has("recvfrom") && !has("EAGAIN"))))) {
            EXPECT_EQ(answer, kBroken);
        } else if (interrupted || has("SIOCOUTQ") || has("recvfrom") || has("sendto") ||
                   call == kWait) {
            EXPECT_EQ(answer, whole);
        } else {
            EXPECT_TRUE(answer == kUnavailable || IsPartOf(answer, whole)) << answer;
        }
        EXPECT_LE(lines.size(), 50U) << "repeats the call";
        EXPECT_EQ(Ask(question), whole) << "the next answer";
        ASSERT_NO_FATAL_FAILURE(AwaitNoClient());
    }

    std::optional<Daemon> daemon_;
    std::map<std::string, std::string> answers_;
    std::set<std::string> failed_;  // calls that failed with every error
    int faults_ = 0;
};

TEST_F(SystemCallsTest, EverySystemCallIsNeededAndMayFail) {
    const bool nvme = Ask("info").starts_with("nvme");
    const struct {
        std::string question;
        int calls;  // except waits and those that write records
    } cases[] = {{"power", nvme ? 17 : 76},
                 {"info", nvme ? 18 : 78},
                 {"health", nvme ? 19 : 48},
                 {"userdata", 15},
                 {"metadata", 15}};
    for (const auto& [question, calls] : cases) {
        const std::string whole = answers_[question] = Ask(question);
        ASSERT_TRUE(whole != kBroken && whole != kUnavailable) << question;
        AwaitNoClient();
        const auto counts = Count(Trace({"-etrace=!close,?poll,ppoll,socket,write"},
                                        [&, &q = question] { (void)Ask(q); }));
        int made = 0;
        for (const auto& [call, count] : counts) {
            if (call != kWait && call != "sendto") made += count;
            // The daemon pauses after a failed wait or accept.
            if (call == "accept4" || (call == kWait && question != "power")) continue;
            for (int n = 1; n <= count; ++n) {
                const size_t errors = failed_.insert(call).second ? std::size(kErrors) : 3;
                for (size_t i = 0; i < errors; ++i) {
                    ASSERT_NO_FATAL_FAILURE(FailOnce(question, call, n, kErrors[i]));
                }
            }
        }
        EXPECT_EQ(made, calls) << question << ": " << testing::PrintToString(counts);
    }
    std::cout << faults_ << " faults\n";
}

TEST_F(SystemCallsTest, ACallThatIsAlwaysInterruptedIsMadeFiveTimes) {
    const std::string whole = Ask("userdata");
    for (const auto& [call, times] : std::map<std::string, size_t>{
             {kReadLink, 5}, {"newfstatat", 5}, {"openat", 5}, {"read", 15}}) {  // of three files
        SCOPED_TRACE(call);
        const Lines lines = Trace({"-etrace=" + call, "-einject=" + call + ":error=EINTR"}, [&] {
            const std::string answer = Ask("userdata");
            EXPECT_TRUE(answer == kUnavailable || IsPartOf(answer, whole));
        });
        EXPECT_EQ(lines.size(), times);
    }
}

TEST_F(SystemCallsTest, TheDaemonPausesAfterAFailedAcceptOrWaitAndServesAgain) {
    const std::string power = Ask("power");
    const struct {
        std::string fault;
        std::chrono::milliseconds pause;
    } cases[] = {{"accept4:error=EMFILE:when=1..2", 1900ms},
                 {"accept4:error=EINTR:when=1", 0ms},
                 {"accept4:error=ECONNABORTED:when=1", 0ms},
                 {kWait + ":error=EIO:when=1..3", 100ms}};
    for (const auto& c : cases) {
        const auto start = std::chrono::steady_clock::now();
        Trace({"-einject=" + c.fault}, [&] { EXPECT_EQ(Ask("power"), power) << c.fault; });
        EXPECT_GE(std::chrono::steady_clock::now() - start, c.pause) << c.fault;
    }
    const Child strace = AttachStrace({"-einject=" + kWait + ":error=EIO"});
    const auto start = std::chrono::steady_clock::now();
    (void)ConnectToService();  // ends the wait that strace interrupted
    EXPECT_EQ(daemon_->Wait(), 1) << "twenty waits in a row failed";
    EXPECT_GE(std::chrono::steady_clock::now() - start, 1900ms);
}

// The second request waits for the peer to take the first reply.
TEST_F(SystemCallsTest, AConnectionThatCannotBeWatchedIsClosed) {
    Trace({"-einject=epoll_ctl:error=ENOMEM:when=2"}, [&] {
        const RawSocket client(kPath);
        ASSERT_NO_FATAL_FAILURE(client.Connect());
        for (int i = 0; i < 2; ++i) (void)Send(client.Fd(), "BirQ\xff\xff\xff\0\0\0\0\0"s);
        pollfd hang_up{client.Fd(), 0, 0};
        EXPECT_EQ(poll(&hang_up, 1, 60'000), 1) << "not closed";
    });
}

}  // namespace
