// Measures the daemon and its floor, bare/server.c, in turn and prints one line a sample: measure,
// side ("ours" or "floor") and value, separated by tabs. bench/table.py makes tables of these
// lines.
//
//   calls FLOOR WHERE OURS_PID FLOOR_PID ROUNDS BATCH CALL...
//                                        µs a call on a kept connection, µs of CPU
//   repeat ours|FLOOR CALLS CALL         prints nothing
//   start ROUNDS OURS FLOOR              µs from exec of the two programs to the first reply
//   first MEASURE ours|floor SOCKET      ms from connect to the first reply
//   run MEASURE ROUNDS PROGRAM ARG...    ms of a program; its floor is bench_health
//   load FLOOR SECONDS CLIENTS           many clients at once
//   memory MEASURE ours|floor PID        KiB
//
// FLOOR is the socket of a bench_server, WHERE the text before each measure, CALL one of kCalls.
#include <base/unique_fd.h>
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
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace morsk::com::quendar::tavisk::disk_info;
using Clock = std::chrono::steady_clock;
using Call = std::function<void()>;

// The index of a call is its number in a request to the floor.
constexpr std::array kCalls = {"version", "info", "health", "power", "userdata", "metadata"};
constexpr uint32_t kVersion = 0;
constexpr uint32_t kVersionReply = 12 + 4 + 4;  // message header, status, number
constexpr uint32_t kMagic = 0x51726942;
constexpr const char* kSides[] = {"ours", "floor"};
const std::string kInstance = std::string(BpDiskInfoService::descriptor) + "/default";
const std::string kSocket = "/run/binder/" + kInstance;

[[noreturn]] void Die(const char* what) {
    perror(what);
    exit(1);
}

void Sample(const std::string& measure, const char* side, double value) {
    printf("%s\t%s\t%.4f\n", measure.c_str(), side, value);
}

double MicrosSince(Clock::time_point start) {
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

template <typename Action>
double MicrosACall(int count, const Action& action) {
    const auto start = Clock::now();
    for (int i = 0; i < count; ++i) action();
    return MicrosSince(start) / count;
}

uint32_t NumberOf(const char* call) {
    for (uint32_t i = 0; i < kCalls.size(); ++i) {
        if (std::strcmp(kCalls[i], call) == 0) return i;
    }
    Die(call);
}

sockaddr_un AddressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    return address;
}

// A connection to the daemon or the floor, without the proxy. A call's requests have equal sizes.
class Connection {
  public:
    explicit Connection(const std::string& path) : fd_(socket(AF_UNIX, SOCK_SEQPACKET, 0)) {
        const sockaddr_un address = AddressOf(path);
        if (connect(fd_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0)
            Die(path.c_str());
    }

    void SendToFloor(uint32_t number, uint32_t reply_bytes) { Send({reply_bytes, number}, number); }

    void SendToDaemon(uint32_t number) {
        const uint32_t code =
            number == kVersion ? BpDiskInfoService::kGetInterfaceVersion : std::min(number, 4U);
        std::array<uint32_t, 7> message{kMagic, code, code == 4 ? 16U : 0U, 8};
        std::memcpy(&message[4], kCalls[number], code == 4 ? 8 : 0);
        Send(message, number);
    }

    void RequestVersion(int side) {
        side == 0 ? SendToDaemon(kVersion) : SendToFloor(kVersion, kVersionReply);
    }

    // The size of the next message, in bytes.
    uint32_t Receive() {
        const ssize_t size = recv(fd_.get(), reply_.data(), reply_.size(), 0);
        if (size <= 0) Die("receive a reply");
        return static_cast<uint32_t>(size);
    }

  private:
    void Send(const std::array<uint32_t, 7>& message, uint32_t number) {
        if (send(fd_.get(), message.data(), number < 4 ? 12 : 28, 0) < 0) Die("send a request");
    }

    base::UniqueFd fd_;
    std::vector<char> reply_ = std::vector<char>(size_t{1} << 16);
};

// Makes a call through the interface's proxy, as every client does, on a connection of its own.
template <typename Reply>
Call ProxyCall(auto method, auto... arguments) {
    binder::StrongBinder service(AServiceManager_checkService(kInstance.c_str()));
    if (!service) Die("connect to the daemon");
    const auto proxy = binder::SharedRefBase::make<BpDiskInfoService>(std::move(service));
    return [=, reply = Reply{}]() mutable {
        if (!((*proxy).*method)(arguments..., &reply).isOk()) Die("call the daemon");
    };
}

Call DaemonCall(uint32_t number) {
    using Proxy = BpDiskInfoService;
    if (number == kVersion) return ProxyCall<int32_t>(&Proxy::getInterfaceVersion);
    if (number == 1) return ProxyCall<std::optional<DiskInfoParcel>>(&Proxy::getDiskInfo);
    if (number == 2) return ProxyCall<std::optional<DiskHealthParcel>>(&Proxy::getDiskHealth);
    if (number == 3) return ProxyCall<std::optional<DiskPowerParcel>>(&Proxy::getDiskPower);
    return ProxyCall<std::optional<FilesystemInfoParcel>>(&Proxy::getFilesystemInfo,
                                                          kCalls[number]);
}

Call FloorCall(const char* path, uint32_t number, uint32_t reply_bytes) {
    return [=, connection = std::make_shared<Connection>(path)] {
        connection->SendToFloor(number, reply_bytes);
        if (connection->Receive() != reply_bytes) Die("the floor's reply has another size");
    };
}

uint32_t ReplyBytesOfDaemon(uint32_t number) {
    Connection connection(kSocket);
    connection.SendToDaemon(number);
    return connection.Receive();
}

// User and kernel time of a process in µs, counted by the kernel's clock tick.
std::array<double, 2> CpuOf(const char* pid) {
    std::ifstream file("/proc/" + std::string(pid) + "/stat");
    std::string word;
    for (int i = 0; i < 13; ++i) file >> word;
    std::array<double, 2> ticks{};
    if (!(file >> ticks[0] >> ticks[1])) Die(pid);
    for (double& value : ticks) value *= 1e6 / static_cast<double>(sysconf(_SC_CLK_TCK));
    return ticks;
}

// Proportional memory of a process in KiB.
double MemoryOf(const char* pid) {
    std::ifstream file("/proc/" + std::string(pid) + "/smaps_rollup");
    for (std::string word; file >> word;) {
        double value = 0;
        if (word == "Pss:" && file >> value) return value;
    }
    Die(pid);
}

// In batches. CPU time is the mean of all calls, because the clock tick is too coarse for one call.
void MeasureCalls(char** arguments) {
    const std::string where = arguments[1];
    const int rounds = atoi(arguments[4]), batch = atoi(arguments[5]);
    double cpu[2][2] = {};
    int calls = 0;
    for (char** name = arguments + 6; *name != nullptr; ++name) {
        const uint32_t number = NumberOf(*name);
        const Call call[] = {DaemonCall(number),
                             FloorCall(arguments[0], number, ReplyBytesOfDaemon(number))};
        for (int round = -1; round < rounds; ++round) {
            for (const int side : {0, 1}) {
                const auto before = CpuOf(arguments[2 + side]);
                const double micros = MicrosACall(batch, call[side]);
                const auto after = CpuOf(arguments[2 + side]);
                for (const int mode : {0, 1}) cpu[side][mode] += after[mode] - before[mode];
                if (round >= 0) Sample(where + " call " + *name + ", µs", kSides[side], micros);
            }
            calls += batch;
        }
    }
    for (const int side : {0, 1}) {
        Sample(where + " user CPU a call, µs", kSides[side], cpu[side][0] / calls);
        Sample(where + " kernel CPU a call, µs", kSides[side], cpu[side][1] / calls);
    }
}  // NOLINT(clang-analyzer-cplusplus.NewDeleteLeaks): std::function owns its callable.

void Repeat(char** arguments) {
    const uint32_t number = NumberOf(arguments[2]);
    const bool is_ours = std::strcmp(arguments[0], "ours") == 0;
    const Call call = is_ours ? DaemonCall(number) : FloorCall(arguments[0], number, kVersionReply);
    for (int i = atoi(arguments[1]); i > 0; --i) call();
}  // NOLINT(clang-analyzer-cplusplus.NewDeleteLeaks): std::function owns its callable.

// Runs a program with `fd` as its standard output, or as descriptor 3, the first that systemd
// passes.
pid_t Spawn(char* const* command, const base::UniqueFd& fd, int as) {
    const pid_t pid = fork();
    if (pid != 0) return pid;
    dup2(fd.get(), as);
    if (as == 3) {
        setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
        setenv("LISTEN_FDS", "1", 1);
    }
    execvp(command[0], command);
    _exit(127);
}

// The socket listens and has the request before the server starts, as with socket activation.
double MicrosToFirstReply(char* program, int side) {
    static char number[] = "3", one[] = "one";
    const std::string path = "/tmp/bench." + std::to_string(getpid());
    const sockaddr_un address = AddressOf(path);
    const base::UniqueFd listener(socket(AF_UNIX, SOCK_SEQPACKET, 0));
    unlink(path.c_str());
    if (bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(listener.get(), 1) != 0) {
        Die(path.c_str());
    }
    Connection client(path);
    client.RequestVersion(side);
    char* const command[] = {program, number, one, nullptr};
    const auto start = Clock::now();
    const pid_t pid = Spawn(command, listener, 3);
    (void)client.Receive();
    const double micros = MicrosSince(start);
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    return micros;
}

void MeasureStart(char** arguments) {
    for (int round = -1; round < atoi(arguments[0]); ++round) {
        for (const int side : {0, 1}) {
            const double micros = MicrosToFirstReply(arguments[1 + side], side);
            if (round >= 0) Sample("exec to first answer, µs", kSides[side], micros);
        }
    }
}

void MeasureFirst(char** arguments) {
    const auto start = Clock::now();
    Connection connection(arguments[2]);
    connection.RequestVersion(std::strcmp(arguments[1], "floor") == 0);
    (void)connection.Receive();
    Sample(arguments[0], arguments[1], MicrosSince(start) / 1000);
}

void MeasureRun(char** arguments) {
    static char floor[] = "bench_health";
    char* const floor_command[] = {floor, nullptr};
    const base::UniqueFd output(open("/dev/null", O_WRONLY));
    for (int round = -1; round < atoi(arguments[1]); ++round) {
        for (const int side : {0, 1}) {
            int status = 0;
            const auto start = Clock::now();
            waitpid(Spawn(side == 0 ? arguments + 2 : floor_command, output, STDOUT_FILENO),
                    &status, 0);
            if (!WIFEXITED(status) || WEXITSTATUS(status) == 127) Die(arguments[2]);
            if (round >= 0) Sample(arguments[0], kSides[side], MicrosSince(start) / 1000);
        }
    }
}

// Runs `clients` threads for `seconds`. Each has its own connection and calls without a pause.
void LoadOf(const char* side, double seconds, size_t clients,
            const std::function<Call()>& connect) {
    std::atomic<bool> stop = false;
    std::vector<double> waits(clients), calls(clients);
    std::vector<std::thread> threads;
    const auto start = Clock::now();
    for (size_t i = 0; i < clients; ++i) {
        threads.emplace_back([&, i] {
            for (const Call call = connect(); !stop; ++calls[i])
                waits[i] = std::max(waits[i], MicrosACall(1, call));
        });
    }
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    stop = true;
    for (std::thread& thread : threads) thread.join();
    const std::string measure = std::to_string(clients) + " clients: ";
    Sample(measure + "µs a call", side,
           MicrosSince(start) / std::accumulate(calls.begin(), calls.end(), 0.0));
    if (clients == 1) return;
    const auto [least, most] = std::ranges::minmax(calls);
    Sample(measure + "most served / least served", side, most / std::max(least, 1.0));
    Sample(measure + "longest wait, ms", side, std::ranges::max(waits) / 1000);
}

void MeasureLoad(char** arguments) {
    const double seconds = atof(arguments[1]);
    const size_t clients = strtoul(arguments[2], nullptr, 10);
    LoadOf("ours", seconds, clients, [] { return DaemonCall(kVersion); });
    LoadOf("floor", seconds, clients,
           [&] { return FloorCall(arguments[0], kVersion, kVersionReply); });
}

void MeasureMemory(char** arguments) {
    Sample(arguments[0], arguments[1], MemoryOf(arguments[2]));
}

}  // namespace

int main(int argc, char** argv) {
    const struct {
        const char* name;
        int least_arguments;
        void (*run)(char** arguments);
    } modes[] = {{"calls", 7, MeasureCalls},  {"repeat", 3, Repeat},  {"start", 3, MeasureStart},
                 {"first", 3, MeasureFirst},  {"run", 3, MeasureRun}, {"load", 3, MeasureLoad},
                 {"memory", 3, MeasureMemory}};
    for (const auto& mode : modes) {
        if (argc < 2 + mode.least_arguments || std::strcmp(argv[1], mode.name) != 0) continue;
        mode.run(argv + 2);
        return 0;
    }
    fputs("usage: see the top of bench/client.cpp\n", stderr);
    return 2;
}
