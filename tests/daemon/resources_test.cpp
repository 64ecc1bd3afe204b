// The daemon under load and with misbehaving clients: another client gets the same answers
// throughout, and afterwards the daemon holds no more resources than before.
#include <answers.h>
#include <daemon.h>
#include <raw_socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <deque>
#include <iostream>
#include <optional>

using namespace std::string_literals;

namespace {

const std::string kPower = "BirQ\3\0\0\0\0\0\0\0"s;

struct RawClient : RawSocket {
    RawClient() : RawSocket(kPath) { Connect(); }
};

class ResourcesTest : public PrivateRootTest {
  protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(PrivateRootTest::SetUp());
        PlaceDevice();
        daemon_.emplace(SERVICE_PROGRAM);
        good_client_ = ConnectToService();
        first_ = Answers();
        ASSERT_EQ(first_.find("exception"), std::string::npos) << first_;
        // The first requests may allocate memory that the daemon keeps.
        for (int i = 0; i < 200; ++i) {
            const RawClient client;
            EXPECT_EQ(Send(client.Fd(), std::string(65548, 'x')), 65548);
            EXPECT_EQ(Receive(client), "");
            ExpectSameAnswers();
        }
        before_.emplace(daemon_->Pid());
    }
    void TearDown() override {
        if (!before_) return;
        ExpectSameAnswers();
        // Three standard streams, the socket, epoll, the good client's connection.
        EXPECT_TRUE(Eventually([&] { return Vitals(daemon_->Pid()).descriptors == 6; }));
        const Vitals after(daemon_->Pid());
        EXPECT_EQ(after.threads, 1);
        EXPECT_LE(after.memory_kib, before_->memory_kib + kMoreMemoryKib);
    }
    std::string Answers() {
        return Ask(*good_client_, "info") + Ask(*good_client_, "health") +
               Ask(*good_client_, "power") + Ask(*good_client_, "userdata");
    }
    void ExpectSameAnswers() { EXPECT_EQ(Answers(), first_); }

#ifdef __SANITIZE_ADDRESS__  // whose allocator keeps more
    static constexpr long kMoreMemoryKib = 2048;
#else
    static constexpr long kMoreMemoryKib = 128;
#endif
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    std::optional<Daemon> daemon_;
    std::shared_ptr<Service> good_client_;
    std::string first_;
    std::optional<Vitals> before_;
};

TEST_F(ResourcesTest, AUserHasSixtyFourPlacesAndAFreedOneAdmitsAClientThatWaits) {
    for (int round = 0; round < 3; ++round) {
        std::deque<RawClient> clients(1000);
        int served = 0;
        for (const RawClient& client : clients) {
            (void)Send(client.Fd(), kPower);
            served += !Receive(client).empty();
        }
        EXPECT_GE(served, 63);
        EXPECT_LE(Vitals(daemon_->Pid()).descriptors, 5 + 64);
        // The daemon gets both events in one round, that of the new connection first.
        daemon_->Kill(SIGSTOP);
        ASSERT_EQ(waitpid(daemon_->Pid(), nullptr, WUNTRACED), daemon_->Pid());
        const RawClient waits;
        (void)Send(waits.Fd(), kPower);
        clients.pop_front();
        daemon_->Kill(SIGCONT);
        EXPECT_NE(Receive(waits), "");
    }
}

TEST_F(ResourcesTest, SilentClientsAndClientsThatNeverReadDelayNoOther) {
    const std::deque<RawClient> silent(30);
    for (int i = 0; i < 100; ++i) {
        const RawClient never_reads;
        while (send(never_reads.Fd(), kPower.data(), 12, MSG_NOSIGNAL | MSG_DONTWAIT) == 12) {
        }
        EXPECT_EQ(errno, EAGAIN);  // the daemon serves one request; the others fill the socket
        ExpectSameAnswers();
    }
}

TEST_F(ResourcesTest, AClientMayLeaveAtEveryStepOfACall) {
    for (int i = 0; i < 200; ++i) {
        const RawClient connected, inside_a_request, before_the_reply, before_two, after_the_reply;
        (void)Send(inside_a_request.Fd(), kPower.substr(0, 6));
        (void)Send(before_the_reply.Fd(), kPower);
        for (int request = 0; request < 2; ++request) (void)Send(before_two.Fd(), kPower);
        (void)Send(after_the_reply.Fd(), kPower);
        EXPECT_NE(Receive(after_the_reply), "");
    }
}

// SOAK_CALLS sets the number of calls.
TEST_F(ResourcesTest, ManyCallsCostNoMemoryAndFiftyRecordsInThirtySeconds) {
    const char* const calls = getenv("SOAK_CALLS");
    const long rounds = (calls != nullptr ? atol(calls) : 40'000) / 4;
    for (long round = 0; round < rounds && !HasFailure(); ++round) ExpectSameAnswers();
    std::cout << rounds * 4 << " calls, " << before_->memory_kib << " KiB before and "
              << Vitals(daemon_->Pid()).memory_kib << " KiB after them\n";
    const auto records = std::ranges::count(daemon_->Err(), '\n');
    const auto elapsed = std::chrono::steady_clock::now() - start_;
    EXPECT_GE(records, 48);
    EXPECT_LE(records, 50 * (elapsed / std::chrono::seconds(30) + 1));
}

}  // namespace
