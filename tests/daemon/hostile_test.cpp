// Misbehaving clients. A good client that asks all the time is answered nevertheless; afterwards
// the daemon holds what it held before.
#include <daemon.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <deque>
#include <optional>
#include <string>

using namespace morsk::com::quendar::tavisk::disk_info;
using namespace std::string_literals;

namespace {

// A client without the library.
class RawClient {
  public:
    RawClient() : fd_(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{AF_UNIX, ""};
        std::strcpy(address.sun_path, kPath);
        EXPECT_EQ(connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }
    ~RawClient() { close(fd_); }
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    bool Send(const std::string& bytes) const {
        return send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT) ==
               ssize_t(bytes.size());
    }
    // The reply's status; nothing when the connection ends instead.
    std::optional<int32_t> Receive() const {
        int32_t header[3] = {};
        pollfd waiting{fd_, POLLIN, 0};
        EXPECT_EQ(poll(&waiting, 1, 20'000), 1);
        if (recv(fd_, header, sizeof header, 0) <= 0) return std::nullopt;
        EXPECT_EQ(header[0], 0x50726942);
        return header[1];
    }

  private:
    const int fd_;
};

const std::string kVersion = "BirQ\xff\xff\xff\0\0\0\0\0"s;
const std::string kHash = "BirQ\xfe\xff\xff\0\0\0\0\0"s;

// The body of a good client: asks until its standard input ends.
void AskAllTheTime() {
    signal(SIGPIPE, SIG_DFL);
    const auto service = ConnectToService();
    pollfd end{0, POLLIN, 0};
    while (service && poll(&end, 1, 1) == 0) {
        std::optional<FilesystemInfoParcel> info;
        if (!service->getFilesystemInfo("metadata", &info).isOk() || info->errorCount != 3)
            _exit(1);
    }
    _exit(service ? 0 : 2);
}

class HostileTest : public PrivateRootTest {
  protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(PrivateRootTest::SetUp());
        PlaceDevice();
        daemon_.emplace(SERVICE_PROGRAM);
        int ends[2];
        ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
        stop_ = ends[1];
        good_client_.emplace([&] {
            dup2(ends[0], 0);
            close(stop_);
            AskAllTheTime();
        });
        close(ends[0]);
        // The first of each kind may take memory that stays.
        for (int i = 0; i < 200; ++i) {
            const RawClient client;
            EXPECT_TRUE(client.Send(std::string(65548, 'x')) && client.Receive() == std::nullopt);
        }
        ASSERT_TRUE(Eventually([&] { return Vitals(daemon_->pid()).descriptors == kDescriptors; }));
        before_.emplace(daemon_->pid());
    }
    void TearDown() override {
        if (!before_) return;
        EXPECT_TRUE(Eventually([&] { return Vitals(daemon_->pid()).descriptors == kDescriptors; }));
        const Vitals after(daemon_->pid());
        EXPECT_EQ(after.threads, 1);
        EXPECT_LE(after.memory_kib, before_->memory_kib + kMoreMemoryKib);
        RecordProperty("memory_kib_before", int(before_->memory_kib));
        RecordProperty("memory_kib_after", int(after.memory_kib));
        close(stop_);
        EXPECT_EQ(good_client_->Wait(), 0) << "1: answered wrongly, 2: not at all";
    }

    // Three standard streams, the socket, epoll, the good client's connection.
    static constexpr long kDescriptors = 6;
#ifdef __SANITIZE_ADDRESS__  // whose allocator is another
    static constexpr long kMoreMemoryKib = 2048;
#else
    static constexpr long kMoreMemoryKib = 128;
#endif
    int stop_ = -1;
    std::optional<Daemon> daemon_;
    std::optional<Child> good_client_;
    std::optional<Vitals> before_;
};

TEST_F(HostileTest, AThousandConnectionsAtOnceThreeTimes) {
    for (int round = 0; round < 3; ++round) {
        std::deque<RawClient> clients(1000);
        // One user has 64 places: its other connections are closed.
        long served = 0;
        for (const RawClient& client : clients) {
            if (client.Send(kVersion) && client.Receive() == 0) ++served;
        }
        EXPECT_EQ(served, 63);
    }
}

TEST_F(HostileTest, SilentClientsAndThoseThatNeverRead) {
    const std::deque<RawClient> silent(30);
    for (int i = 0; i < 100; ++i) {
        const RawClient never_reads;
        while (never_reads.Send(kHash)) {
        }
        EXPECT_EQ(errno, EAGAIN);  // One request was served; those behind it fill the socket.
    }
}

TEST_F(HostileTest, ClientsKilledAtEveryStepOfACall) {
    for (int step = 0; step < 6; ++step) {
        for (int round = 0; round < 20; ++round) {
            int ends[2];
            ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
            Child client([&] {
                const RawClient raw;
                const std::string power = "BirQ\3\0\0\0\0\0\0\0"s;
                if (step == 1) (void)raw.Send(power.substr(0, 6));
                for (int i = 1; i < step; ++i) (void)raw.Send(power);
                if (step == 3) (void)raw.Receive();
                (void)!write(ends[1], "", 1);
                pause();
            });
            char byte;
            ASSERT_EQ(read(ends[0], &byte, 1), 1);
            client.Kill();
            client.Wait();
            close(ends[0]);
            close(ends[1]);
        }
    }
}

}  // namespace
