// Asks the daemon and its floor, bare/server.c, in turn, and prints one line a sample: measure,
// "ours" or "floor", value, separated by tabs. bench/table.py makes the table of these lines.
//
//   client calls BARE WHERE OURS_PID BARE_PID ROUNDS BATCH KIND...
//       µs a call on a kept connection, and µs of CPU
//   client repeat CALLS KIND
//       prints nothing
//   client start ROUNDS OURS BARE
//       µs from exec to the first answer
//   client first MEASURE SIDE SOCKET
//       ms from connect to the first answer
//   client run MEASURE ROUNDS OURS FLOOR
//       ms of two shell commands that are run in turn
//   client load BARE SECONDS CLIENTS
//       many clients at once
//   client memory MEASURE SIDE PID [CLIENTS]
//       KiB; with so many idle clients, bytes for each
//
// BARE is the socket of the bare server, WHERE the text that stands before each measure. The bare
// server's plans are those of kKinds, in that order.
#include <binder/service_manager.h>
#include <fcntl.h>
#include <morsk/BpDiskInfoService.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cinttypes>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace morsk::com::quendar::tavisk::disk_info;
using Clock = std::chrono::steady_clock;

constexpr std::array kKinds = {"version", "info", "health", "power", "userdata", "metadata"};
constexpr size_t kVersion = 0;
constexpr uint32_t kVersionReply = 12 + 4 + 4;  // message header, status, number
const std::string kInstance = std::string(BpDiskInfoService::descriptor) + "/default";

[[noreturn]] void Die(const char* what) {
    perror(what);
    exit(1);
}

double MicrosSince(Clock::time_point start) {
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

void Sample(const std::string& measure, const char* side, double value) {
    printf("%s\t%s\t%.4f\n", measure.c_str(), side, value);
}

size_t KindOf(const char* name) {
    for (size_t i = 0; i < kKinds.size(); ++i) {
        if (std::strcmp(kKinds[i], name) == 0) return i;
    }
    Die(name);
}

template <typename Parcelable>
int32_t SizeOf(const std::optional<Parcelable>& value) {
    const binder::ScopedParcel parcel(AParcel_create());
    if (!value || value->writeToParcel(parcel.get()) != STATUS_OK) Die("an answer without a value");
    return AParcel_getDataSize(parcel.get());
}

// The daemon as every client sees it: through the interface's proxy.
class Ours {
  public:
    Ours() {
        binder::StrongBinder service(AServiceManager_checkService(kInstance.c_str()));
        if (!service) Die("connect to the daemon");
        proxy_ = binder::SharedRefBase::make<BpDiskInfoService>(std::move(service));
    }

    void Ask(size_t kind) {
        if (!Call(kind).isOk()) Die(kKinds[kind]);
    }

    // Bytes of the last reply to a question of this kind: message header, status, marker,
    // parcelable.
    uint32_t ReplyBytes(size_t kind) {
        Ask(kind);
        switch (kind) {
            case kVersion:
                return kVersionReply;
            case 1:
                return uint32_t(12 + 4 + 4 + SizeOf(info_));
            case 2:
                return uint32_t(12 + 4 + 4 + SizeOf(health_));
            case 3:
                return uint32_t(12 + 4 + 4 + SizeOf(power_));
            default:
                return uint32_t(12 + 4 + 4 + SizeOf(filesystem_));
        }
    }

  private:
    binder::ScopedStatus Call(size_t kind) {
        int32_t version = 0;
        switch (kind) {
            case kVersion:
                return proxy_->getInterfaceVersion(&version);
            case 1:
                return proxy_->getDiskInfo(&info_);
            case 2:
                return proxy_->getDiskHealth(&health_);
            case 3:
                return proxy_->getDiskPower(&power_);
            default:
                return proxy_->getFilesystemInfo(kKinds[kind], &filesystem_);
        }
    }

    std::shared_ptr<BpDiskInfoService> proxy_;
    std::optional<DiskInfoParcel> info_;
    std::optional<DiskHealthParcel> health_;
    std::optional<DiskPowerParcel> power_;
    std::optional<FilesystemInfoParcel> filesystem_;
};

int Connect(const char* path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path, sizeof address.sun_path - 1);
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) Die(path);
    return fd;
}

// The bare server, with messages as long as the daemon's.
class Bare {
  public:
    explicit Bare(const char* path) : fd_(Connect(path)) {}
    Bare(const Bare&) = delete;
    ~Bare() { close(fd_); }

    void Ask(size_t kind, uint32_t reply_bytes) {
        std::array<uint32_t, 7> request{reply_bytes, uint32_t(kind)};
        const size_t size = kind < 4 ? 12 : 12 + 4 + 12;
        if (send(fd_, request.data(), size, 0) != ssize_t(size) ||
            recv(fd_, reply_, sizeof reply_, 0) != ssize_t(reply_bytes)) {
            Die((std::string("bare ") + kKinds[kind]).c_str());
        }
    }

  private:
    int fd_;
    char reply_[1 << 16] = {};
};

double MicrosACall(int count, const std::function<void()>& call) {
    const auto start = Clock::now();
    for (int i = 0; i < count; ++i) call();
    return MicrosSince(start) / count;
}

// User and kernel time of a process in µs, counted by the kernel's clock tick.
std::array<double, 2> CpuOf(const char* pid) {
    std::ifstream file("/proc/" + std::string(pid) + "/stat");
    std::string word;
    for (int i = 0; i < 13; ++i) file >> word;
    std::array<double, 2> ticks{};
    if (!(file >> ticks[0] >> ticks[1])) Die(pid);
    for (double& value : ticks) value *= 1e6 / double(sysconf(_SC_CLK_TCK));
    return ticks;
}

// Batches in turn. The CPU is that of all calls together, as the tick is too coarse for a kind
// alone.
void Calls(char** arguments) {
    Ours ours;
    Bare bare(arguments[0]);
    const std::string where = arguments[1];
    const int rounds = atoi(arguments[4]), batch = atoi(arguments[5]);
    size_t kind = 0;
    uint32_t reply_bytes = 0;
    const struct {
        const char* name;
        const char* pid;
        std::function<void()> ask;
    } sides[] = {{"ours", arguments[2], [&] { ours.Ask(kind); }},
                 {"floor", arguments[3], [&] { bare.Ask(kind, reply_bytes); }}};
    double cpu[2][2] = {};
    int calls = 0;
    for (char** name = arguments + 6; *name != nullptr; ++name) {
        kind = KindOf(*name);
        reply_bytes = ours.ReplyBytes(kind);
        for (int round = -1; round < rounds; ++round) {
            for (const int i : {0, 1}) {
                const auto before = CpuOf(sides[i].pid);
                const double micros = MicrosACall(batch, sides[i].ask);
                const auto after = CpuOf(sides[i].pid);
                for (const int mode : {0, 1}) cpu[i][mode] += after[mode] - before[mode];
                if (round >= 0) Sample(where + " call " + *name + ", µs", sides[i].name, micros);
            }
            calls += batch;
        }
    }
    for (const int i : {0, 1}) {
        Sample(where + " user CPU a call, µs", sides[i].name, cpu[i][0] / calls);
        Sample(where + " kernel CPU a call, µs", sides[i].name, cpu[i][1] / calls);
    }
}

void Repeat(char** arguments) {
    Ours ours;
    const size_t kind = KindOf(arguments[1]);
    for (int i = atoi(arguments[0]); i > 0; --i) ours.Ask(kind);
}

// What systemd does: the listening socket is there first, and the server gets it as descriptor 3.
pid_t Start(const char* program, int listener) {
    const pid_t pid = fork();
    if (pid != 0) return pid;
    dup2(listener, 3);
    setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
    setenv("LISTEN_FDS", "1", 1);
    execl(program, program, "3", "one", nullptr);
    _exit(127);
}

// Asks for the interface version on a fresh connection; each server is asked in its own words.
void RequestVersion(int fd, bool is_ours) {
    const uint32_t for_ours[] = {0x51726942, BpDiskInfoService::kGetInterfaceVersion, 0};
    const uint32_t for_bare[] = {kVersionReply, kVersion, 0};
    if (send(fd, is_ours ? for_ours : for_bare, 12, 0) != 12) Die("send");
}

void AwaitVersion(int fd) {
    char reply[64];
    if (recv(fd, reply, sizeof reply, 0) != kVersionReply) Die("no first answer");
}

void StartUp(char** arguments) {
    for (int round = -1; round < atoi(arguments[0]); ++round) {
        for (const bool is_ours : {true, false}) {
            const std::string path = "/tmp/bench." + std::to_string(getpid());
            sockaddr_un address{};
            address.sun_family = AF_UNIX;
            path.copy(address.sun_path, sizeof address.sun_path - 1);
            const int listener = socket(AF_UNIX, SOCK_SEQPACKET, 0);
            if (bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
                listen(listener, 1) != 0) {
                Die("listen");
            }
            const int client = Connect(path.c_str());
            RequestVersion(client, is_ours);
            const auto start = Clock::now();
            const pid_t pid = Start(arguments[is_ours ? 1 : 2], listener);
            AwaitVersion(client);
            const double took = MicrosSince(start);
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
            close(client);
            close(listener);
            unlink(path.c_str());
            if (round >= 0) Sample("exec to first answer, µs", is_ours ? "ours" : "floor", took);
        }
    }
}

void First(char** arguments) {
    const auto start = Clock::now();
    const int fd = Connect(arguments[2]);
    RequestVersion(fd, std::strcmp(arguments[1], "floor") != 0);
    AwaitVersion(fd);
    Sample(arguments[0], arguments[1], MicrosSince(start) / 1000);
}

void RunToEnd(const std::vector<char*>& command) {
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);
        execvp(command[0], command.data());
        _exit(127);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) == 127) Die(command[0]);
}

std::vector<char*> Words(char* text) {
    std::vector<char*> words;
    for (char* word = strtok(text, " "); word != nullptr; word = strtok(nullptr, " "))
        words.push_back(word);
    words.push_back(nullptr);
    return words;
}

void Run(char** arguments) {
    const std::vector<char*> commands[] = {Words(arguments[2]), Words(arguments[3])};
    for (int round = -1; round < atoi(arguments[1]); ++round) {
        for (const int side : {0, 1}) {
            const auto start = Clock::now();
            RunToEnd(commands[side]);
            if (round >= 0)
                Sample(arguments[0], side == 0 ? "ours" : "floor", MicrosSince(start) / 1000);
        }
    }
}

// So many clients at once ask for the version as fast as they can. Client is Ours or Bare.
template <typename MakeClient>
void LoadOf(const char* side, double seconds, int clients, MakeClient&& make) {
    std::atomic<bool> stop = false;
    std::vector<double> waits(size_t(clients), 0), calls(size_t(clients), 0);
    std::vector<std::thread> threads;
    const auto start = Clock::now();
    for (size_t i = 0; i < size_t(clients); ++i) {
        threads.emplace_back([&, i] {
            const auto ask = make();
            while (!stop) {
                waits[i] = std::max(waits[i], MicrosACall(1, ask));
                ++calls[i];
            }
        });
    }
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    stop = true;
    for (std::thread& thread : threads) thread.join();
    const double took = MicrosSince(start);
    double all = 0;
    for (const double count : calls) all += count;
    const std::string measure = std::to_string(clients) + " clients: ";
    Sample(measure + "µs a call", side, took / all);
    if (clients == 1) return;
    const auto [least, most] = std::ranges::minmax(calls);
    Sample(measure + "most served / least served", side, most / std::max(least, 1.0));
    Sample(measure + "longest wait, ms", side, std::ranges::max(waits) / 1000);
}

void Load(char** arguments) {
    const double seconds = atof(arguments[1]);
    const int clients = atoi(arguments[2]);
    LoadOf("ours", seconds, clients,
           [] { return [ours = std::make_shared<Ours>()] { ours->Ask(kVersion); }; });
    LoadOf("floor", seconds, clients, [&] {
        return
            [bare = std::make_shared<Bare>(arguments[0])] { bare->Ask(kVersion, kVersionReply); };
    });
}

// Proportional memory of a process in KiB.
double MemoryOf(const std::string& pid) {
    std::ifstream file("/proc/" + pid + "/smaps_rollup");
    for (std::string word; file >> word;) {
        double value = 0;
        if (word == "Pss:" && file >> value) return value;
    }
    Die(pid.c_str());
}

void Memory(int count, char** arguments) {
    const double before = MemoryOf(arguments[2]);
    if (count == 3) return Sample(arguments[0], arguments[1], before);
    const int clients = atoi(arguments[3]);
    std::vector<std::unique_ptr<Ours>> idle;
    for (int i = 0; i < clients; ++i) {
        idle.push_back(std::make_unique<Ours>());
        idle.back()->Ask(kVersion);
    }
    Sample(arguments[0], arguments[1], (MemoryOf(arguments[2]) - before) * 1024 / clients);
}

}  // namespace

int main(int argc, char** argv) {
    const std::string mode = argc > 1 ? argv[1] : "";
    char** const arguments = argv + 2;
    const int count = argc - 2;
    if (mode == "calls" && count >= 7) return Calls(arguments), 0;
    if (mode == "repeat" && count == 2) return Repeat(arguments), 0;
    if (mode == "start" && count == 3) return StartUp(arguments), 0;
    if (mode == "first" && count == 3) return First(arguments), 0;
    if (mode == "run" && count == 4) return Run(arguments), 0;
    if (mode == "load" && count == 3) return Load(arguments), 0;
    if (mode == "memory" && (count == 3 || count == 4)) return Memory(count, arguments), 0;
    fputs("usage: see the top of bench/client.cpp\n", stderr);
    return 2;
}
