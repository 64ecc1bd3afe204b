// The daemon's system calls: which an answer makes, and what becomes of it when one fails or waits.
//
// Those that read, receive, send, accept and wait for a client fail once, in every way: the n-th of
// each kind, by strace's fault injection into the running daemon. The client sees the answer, the
// answer with neutral values in place of some, the error status of what cannot be read or a broken
// connection, as the call that failed allows; the next client sees the answer, and nothing leaks.
//
// On files here; in an emulated device, where DISK_INFO_DEVICE is set, on its disk.
#include <cli/connection.h>
#include <daemon.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

using namespace morsk::com::quendar::tavisk::disk_info;
using disk_info::cli::Json;

namespace {

struct Question {
    std::string command, partition;
};

const bool in_device = getenv("DISK_INFO_DEVICE") != nullptr;

#ifdef __SANITIZE_ADDRESS__  // slow, and what is looked for are faults of memory
constexpr const char* kErrors[] = {"EIO", "EINTR"};
#else
constexpr const char* kErrors[] = {"EIO", "ENOMEM", "EINTR", "EACCES", "ENODEV", "ENOENT"};
#endif
// accept4 is apart, since after most failures the daemon waits a second for better times.
constexpr char kSystemCalls[] = "openat,read,ioctl,readlink,newfstatat,recvfrom,sendto,epoll_wait";

// What one call answers; {"broken": true} when the connection broke.
Json Ask(const Question& question) {
    try {
        const auto command = disk_info::cli::CommandNamed(question.command).value();
        Json answer = ToJson(disk_info::cli::Query({command, question.partition}));
        answer.erase("assessment");
        return answer;
    } catch (const disk_info::cli::ConnectionError&) {
        return {{"broken", true}};
    }
}

bool IsNeutral(const Json& value) {
    return value == "" || value == 0 || value == 0.0 || value == false || value == -1 ||
           value == "undefined";
}

// Whether `answer` is `whole` but for neutral values.
bool IsPartOf(const Json& answer, const Json& whole) {
    if (!answer.is_object()) return answer == whole || IsNeutral(answer);
    if (!whole.is_object() || answer.size() != whole.size()) return false;
    return std::ranges::all_of(answer.items(), [&](const auto& item) {
        return whole.contains(item.key()) && IsPartOf(item.value(), whole[item.key()]);
    });
}

bool IsUnavailable(const Json& answer) {
    return answer.dump().find(R"({"error":{"kind":"service","code":-1}})") != std::string::npos;
}

class SystemCallsTest : public PrivateRootTest {
  protected:
    void SetUp() override {
        if (!in_device) {
            ASSERT_NO_FATAL_FAILURE(PrivateRootTest::SetUp());
            PlaceDevice();
        }
        daemon_.emplace(in_device ? "/bin/disk_info_service" : SERVICE_PROGRAM);
    }

    // strace on the daemon, with `options`.
    Child Attach(const std::vector<std::string>& options) {
        std::vector<std::string> words{in_device ? "/bin/strace" : "/usr/bin/strace", "-o",
                                       "/run/trace", "-p", std::to_string(daemon_->pid())};
        words.insert(words.end(), options.begin(), options.end());
        unlink("/run/strace.err");
        Child strace(words, "/run/strace");
        EXPECT_TRUE(
            Eventually([&] { return strace.err().find(" attached") != std::string::npos; }));
        return strace;
    }

    // Runs `ask` while strace is attached.
    template <typename Asking>
    void Traced(const std::vector<std::string>& options, Asking&& ask, int kept_clients = 0) {
        Child strace = Attach(options);
        ask();
        AwaitClients(kept_clients);
        strace.Kill(SIGINT);
        (void)strace.Wait();
    }

    // Beside them the daemon has three standard streams, the socket and epoll.
    void AwaitClients(int count) {
        ASSERT_TRUE(Eventually([&] { return Vitals(daemon_->pid()).descriptors == 5 + count; }));
    }

    // How often the daemon makes each system call for one question.
    std::map<std::string, int> Count(const Question& question) {
        std::map<std::string, int> counts;
        Traced({"-e", std::string("trace=") + kSystemCalls}, [&] { (void)Ask(question); });
        std::ifstream trace("/run/trace");
        for (std::string line; std::getline(trace, line);) ++counts[line.substr(0, line.find('('))];
        return counts;
    }

    // Asks with the fault, and once more without.
    void Sweep(const Question& question, const std::string& call, int n, const std::string& error) {
        SCOPED_TRACE(question.command + " " + question.partition + ": " + call + " " +
                     std::to_string(n) + " fails with " + error);
        Json answer;
        Traced({"-e", "trace=" + call, "-e",
                "inject=" + call + ":error=" + error + ":when=" + std::to_string(n)},
               [&] { answer = Ask(question); });
        std::ifstream trace("/run/trace");
        std::string failed;  // the line of the call that failed
        for (std::string line; std::getline(trace, line);) {
            if (line.find("(INJECTED)") != std::string::npos) failed = line;
        }
        const auto failed_has = [&](const char* text) {
            return failed.find(text) != std::string::npos;
        };
        // Whether the daemon waits once more before strace lets go is chance, and the sends of
        // records depend on how many there were before.
        ASSERT_TRUE(!failed.empty() || call == "epoll_wait" || (call == "sendto" && n > 2));
        const std::string& whole = answers_.at(question.command + question.partition).dump();
        const bool same = answer.dump() == whole;
        const bool on_socket = call == "recvfrom" || call == "sendto" || call == "accept4";
        if (error != "EINTR" && (call == "recvfrom" || failed_has("\"BirP"))) {
            EXPECT_TRUE(answer.contains("broken")) << answer;
        } else if (on_socket || call == "epoll_wait" || failed_has("SIOCOUTQ") ||
                   (error == "EINTR" && !failed_has("/dev/block/nvme") && !failed_has("NVME_"))) {
            EXPECT_TRUE(same) << answer;
        } else {
            EXPECT_TRUE(IsUnavailable(answer) || IsPartOf(answer, Json::parse(whole))) << answer;
        }
        ASSERT_EQ(Ask(question).dump(), whole) << "the next answer";
        ASSERT_NO_FATAL_FAILURE(AwaitClients(0));
        faults_ += !failed.empty();
    }

    std::optional<Daemon> daemon_;
    std::map<std::string, Json> answers_;
    int faults_ = 0;
};

TEST_F(SystemCallsTest, EverySystemCallMayFail) {
    for (const Question& question : std::vector<Question>{
             {"power", ""}, {"info", ""}, {"health", ""}, {"fs", "userdata"}, {"fs", "metadata"}}) {
        const Json& answer = answers_[question.command + question.partition] = Ask(question);
        ASSERT_FALSE(answer.contains("broken") || IsUnavailable(answer)) << answer;
        const std::map<std::string, int> counts = Count(question);
        ASSERT_GE(counts.size(), 6U);
        for (const auto& [call, count] : counts) {
            for (int n = 1; n <= count; ++n) {
                for (const char* error : kErrors) {
                    ASSERT_NO_FATAL_FAILURE(Sweep(question, call, n, error));
                }
            }
        }
    }
    for (const char* error : kErrors) {
        ASSERT_NO_FATAL_FAILURE(Sweep({"power", ""}, "accept4", 1, error));
    }
    std::cout << faults_ << " faults\n";
}

// As many files as are read.
std::string Files(int count) {
    std::string list;
    for (int i = 0; i < count; ++i) list += "openat read close ";
    return list;
}

// What one question costs on a kept connection: the names in their order, and how often in a row.
// The loop's own are whether the last reply was taken, the receive and the send, and one wait
// before.
TEST_F(SystemCallsTest, EachAnswerMakesThoseItNeedsAndNoOther) {
    const auto service = ConnectToService();
    const auto made = [&](auto&& ask) {
        ask();  // the first of its kind may take memory
        Traced({}, ask, 1);
        std::ifstream trace("/run/trace");
        std::string list, last;
        int count = 0;
        for (std::string line; line.find("\"BirP") == line.npos && std::getline(trace, line);
             ++count) {
            const std::string name = line.substr(0, line.find('('));
            if (list.empty() && name != "ioctl") continue;  // the end of what went before
            if (name == last) continue;
            if (count > 1 && !list.empty()) list += '*' + std::to_string(count);
            list += (list.empty() ? "" : " ") + name;
            last = name;
            count = 0;
        }
        return list;
    };
    std::optional<DiskInfoParcel> info;
    std::optional<DiskHealthParcel> health;
    std::optional<DiskPowerParcel> power;
    std::optional<FilesystemInfoParcel> filesystem;
    const std::string info_calls = made([&] { (void)service->getDiskInfo(&info); });
    const std::string health_calls = made([&] { (void)service->getDiskHealth(&health); });
    const std::string power_calls = made([&] { (void)service->getDiskPower(&power); });
    const std::string asked = "ioctl recvfrom ", sent = "sendto";
    const std::string disk = asked + "readlink*7 ";
    const std::string record =
        "socket sendto close sendto poll write ";  // no log daemon, no socket
    ASSERT_TRUE(info);
    if (info->nvme() != nullptr) {
        EXPECT_EQ(info_calls, disk + "openat ioctl close openat ioctl close " + sent);
        EXPECT_EQ(health_calls, disk + "openat ioctl close openat ioctl*2 close " + sent);
        EXPECT_EQ(power_calls, disk + "openat ioctl*2 close " + sent);
    } else {
        // The unit's directory is looked for twice, and each find is a record.
        const std::string ufs =
            disk + "newfstatat readlink*11 " + record + "newfstatat readlink*11 " + record + record;
        EXPECT_EQ(info_calls,
                  ufs + Files(19) + "openat ioctl " + (in_device ? "" : record) + "close " + sent);
        EXPECT_EQ(health_calls, ufs + Files(5) + sent);
        EXPECT_EQ(power_calls, ufs + Files(19) + sent);
    }
    for (const char* partition : {"userdata", "metadata"}) {
        EXPECT_EQ(made([&] { (void)service->getFilesystemInfo(partition, &filesystem); }),
                  asked + "readlink newfstatat " + Files(3) + sent);
    }
}

TEST_F(SystemCallsTest, ACallThatIsInterruptedForEverIsMadeFiveTimes) {
    const Json whole = Ask({"fs", "userdata"});
    for (const auto& [call, times] : std::map<std::string, long>{
             {"readlink", 5}, {"newfstatat", 5}, {"openat", 5}, {"read", 15}}) {  // of three files
        SCOPED_TRACE(call);
        Traced({"-e", "trace=" + call, "-e", "inject=" + call + ":error=EINTR"}, [&] {
            const Json answer = Ask({"fs", "userdata"});
            EXPECT_TRUE(IsUnavailable(answer) || IsPartOf(answer, whole)) << answer;
        });
        std::ifstream trace("/run/trace");
        EXPECT_EQ(std::count(std::istreambuf_iterator<char>(trace), {}, '\n'), times);
    }
}

TEST_F(SystemCallsTest, ThreeWaitsMayFailButNotTwentyInARow) {
    const std::string fails = "inject=epoll_wait:error=EIO:when=";
    const Json power = Ask({"power", ""});
    Traced({"-e", fails + "1..3"}, [&] { EXPECT_EQ(Ask({"power", ""}), power); });
    const Child strace = Attach({"-e", fails + "1+"});
    (void)ConnectToService();  // ends the wait that goes on
    EXPECT_EQ(daemon_->Wait(), 1);
}

// One thread serves: while a disk holds a command, all wait, and are then answered.
TEST_F(SystemCallsTest, ADiskThatHoldsACommandDelaysTheAnswersAndNoMore) {
    const std::string call = in_device ? "ioctl" : "read";
    const auto held = std::chrono::seconds(in_device ? 30 : 3);
    const Json power = Ask({"power", ""}), filesystem = Ask({"fs", "metadata"});
    Traced({"-e", "inject=" + call + ":delay_enter=" + std::to_string(held.count()) + "s:when=1"},
           [&] {
               const auto start = std::chrono::steady_clock::now();
               Child first([&] { _exit(Ask({"power", ""}) == power ? 0 : 1); });
               usleep(500'000);
               EXPECT_EQ(Ask({"fs", "metadata"}), filesystem);
               const auto waited = std::chrono::steady_clock::now() - start;
               EXPECT_EQ(first.Wait(), 0);
               EXPECT_GE(waited, held);
               EXPECT_LE(waited, held + std::chrono::seconds(20));
           });
}

}  // namespace
