// Misbehaving clients of the daemon: it answers another client throughout and afterwards holds no
// more resources than before.
#include <daemon.h>
#include <raw_socket.h>

#include <cerrno>
#include <deque>
#include <optional>
#include <string>
#include <thread>

using namespace morsk::com::quendar::tavisk::disk_info;
using namespace std::string_literals;

namespace {

struct RawClient : RawSocket {
    RawClient() : RawSocket(kPath) { Connect(); }
};

const std::string kVersion = "BirQ\xff\xff\xff\0\0\0\0\0"s;
const std::string kPower = "BirQ\3\0\0\0\0\0\0\0"s;

// Makes calls until it is stopped.
void CallWithoutPause(const std::stop_token& stop) {
    const auto service = ConnectToService();
    ASSERT_TRUE(service);
    while (!stop.stop_requested()) {
        std::optional<FilesystemInfoParcel> info;
        ASSERT_TRUE(service->getFilesystemInfo("metadata", &info).isOk());
        ASSERT_EQ(info->errorCount, 3);
    }
}

class HostileTest : public PrivateRootTest {
  protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(PrivateRootTest::SetUp());
        PlaceDevice();
        daemon_.emplace(SERVICE_PROGRAM);
        good_client_ = std::jthread(CallWithoutPause);
        // The first message of each size may allocate memory that the daemon keeps.
        for (int i = 0; i < 200; ++i) {
            const RawClient client;
            EXPECT_EQ(Send(client.fd(), std::string(65548, 'x')), 65548);
            EXPECT_EQ(Receive(client), "");
        }
        AwaitDescriptors();
        before_.emplace(daemon_->pid());
    }
    void TearDown() override {
        if (!before_) return;
        AwaitDescriptors();
        const Vitals after(daemon_->pid());
        EXPECT_EQ(after.threads, 1);
        EXPECT_LE(after.memory_kib, before_->memory_kib + kMoreMemoryKib);
    }
    // Three standard streams, the socket, epoll, the good client's connection.
    void AwaitDescriptors() const {
        EXPECT_TRUE(Eventually([&] { return Vitals(daemon_->pid()).descriptors == 6; }));
    }

#ifdef __SANITIZE_ADDRESS__  // whose allocator keeps more
    static constexpr long kMoreMemoryKib = 2048;
#else
    static constexpr long kMoreMemoryKib = 128;
#endif
    std::optional<Daemon> daemon_;
    std::jthread good_client_;
    std::optional<Vitals> before_;
};

TEST_F(HostileTest, AThousandConnectionsOfAUserGetSixtyFourPlaces) {
    for (int round = 0; round < 3; ++round) {
        std::deque<RawClient> clients(1000);
        int served = 0;
        for (const RawClient& client : clients) {
            (void)Send(client.fd(), kVersion);
            served += !Receive(client).empty();
        }
        EXPECT_GE(served, 63);
        EXPECT_LE(Vitals(daemon_->pid()).descriptors, 5 + 64);
    }
}

TEST_F(HostileTest, SilentClientsAndClientsThatNeverReadDelayNoOther) {
    const std::deque<RawClient> silent(30);
    for (int i = 0; i < 100; ++i) {
        const RawClient never_reads;
        while (send(never_reads.fd(), kPower.data(), 12, MSG_NOSIGNAL | MSG_DONTWAIT) == 12) {
        }
        EXPECT_EQ(errno, EAGAIN);  // the daemon serves one request; the others fill the socket
    }
}

TEST_F(HostileTest, AClientMayLeaveAtEveryStepOfACall) {
    for (int i = 0; i < 200; ++i) {
        const RawClient after_connecting, inside_a_request, before_the_reply, before_two_replies;
        (void)Send(inside_a_request.fd(), kPower.substr(0, 6));
        (void)Send(before_the_reply.fd(), kPower);
        for (int request = 0; request < 2; ++request) (void)Send(before_two_replies.fd(), kPower);
        const RawClient after_the_reply;
        (void)Send(after_the_reply.fd(), kPower);
        EXPECT_NE(Receive(after_the_reply), "");
    }
}

}  // namespace
