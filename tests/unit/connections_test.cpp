// Limits and turns of connections: in the table, and in a server whose clock advances only during
// its calls.
#include <base/unique_fd.h>
#include <echo_service.h>
#include <gtest/gtest.h>
#include <platform/binder/connections.h>
#include <private_root.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <csignal>
#include <cstring>
#include <ctime>
#include <deque>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

const pid_t test_process = getpid();
int64_t clock_ms = 0;  // of this process: how long its calls took together

}  // namespace

// This process is user 8, all others are user 7.
extern "C" int getsockopt(int fd, int level, int option, void* value, socklen_t* size) noexcept {
    const long result = syscall(SYS_getsockopt, fd, level, option, value, size);
    auto* const peer = static_cast<ucred*>(value);
    if (option == SO_PEERCRED) peer->uid = peer->pid == test_process ? 8 : 7;
    return static_cast<int>(result);
}

extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
    if (clock != CLOCK_MONOTONIC_COARSE) {
        return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
    }
    *time = {clock_ms / 1000, clock_ms % 1000 * 1'000'000};
    return 0;
}

namespace {

class TableTest : public testing::Test {
  protected:
    // Number of a new connection; -1: refused. Until the peer is closed, it has a reply to take.
    int Admit(uid_t uid) {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
        base::UniqueFd peer(ends[1]);
        const auto number = table_.Admit(base::UniqueFd(ends[0]), uid, 0);
        if (!number) return -1;
        EXPECT_EQ(Send(table_.Fd(*number), "reply"), 5);
        peers_.push_back(std::move(peer));
        return static_cast<int>(*number);
    }
    binder::Connections table_;
    std::deque<base::UniqueFd> peers_;
};

TEST_F(TableTest, LimitsReservePlacesAndUsersWithFewerConnectionsDisplaceOthers) {
    const struct {
        uid_t user;
        int requested, admitted;
    } cases[] = {
        {7, 65, 64},       {100'000, 63, 63}, {165'535, 2, 1},  // last uid of the range
        {165'536, 65, 64}, {231'072, 1, 0},                     // 128 places for subordinate uids
        {8, 49, 48},       {9, 1, 0},         {0, 17, 16},
    };
    for (const auto& c : cases) {
        int admitted = 0;
        for (int i = 0; i < c.requested; ++i) admitted += Admit(c.user) >= 0;
        EXPECT_EQ(admitted, c.admitted) << "user " << c.user;
    }
    for (const size_t number : {0, 1, 128, 192, 255}) peers_[number].Reset();
    EXPECT_EQ(Admit(231'072), 128);  // of the subordinate uids, although user 7 has as many
    for (const int displaced : {0, 1, 192, -1}) EXPECT_EQ(Admit(9), displaced);
    EXPECT_EQ(Admit(0), -1);  // number 255 is root's own
}

TEST_F(TableTest, TheOldestTurnIsNextFirstOfTheUsersThenOfTheirConnections) {
    for (const uid_t user : {7, 7, 8}) ASSERT_GE(Admit(user), 0);
    const std::vector<uint32_t> rounds[][2] = {// ready; in the order of their turns
                                               {{0, 1, 2}, {0, 2, 1}},
                                               {{1, 0, 2}, {2, 0, 1}},
                                               {{1, 0}, {0, 1}},
                                               {{3, 1, 0, 2}, {2, 0, 3, 1}}};
    for (const auto& [ready, turns] : rounds) {
        if (ready[0] == 3) Admit(9);  // The turn of a new user is the newest.
        table_.StartRound();
        for (const uint32_t number : ready) table_.MarkReady(number);
        for (const uint32_t number : turns) EXPECT_EQ(table_.TakeTurn(), number);
        EXPECT_EQ(table_.TakeTurn(), std::nullopt);
    }
}

constexpr transaction_code_t kStop = 2;

// Takes as many milliseconds as requested; replies with the number of calls so far.
binder_status_t TakeTime(AIBinder*, transaction_code_t code, const AParcel* request,
                         AParcel* reply) {
    static int32_t calls = 0;
    int32_t duration_ms = 0;
    if (const binder_status_t status = AParcel_readInt32(request, &duration_ms)) return status;
    if (code == kStop) (void)raise(SIGSTOP);
    clock_ms += duration_ms;
    return AParcel_writeInt32(reply, ++calls);
}

class ServerTest : public PrivateRootTest {
  protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(PrivateRootTest::SetUp());
        server_.emplace([] {
            const auto create = [](void*) -> void* { return nullptr; };
            const auto destroy = [](void*) {};
            auto* const clazz = AIBinder_Class_define("test", create, destroy, TakeTime);
            const binder::StrongBinder service(AIBinder_new(clazz, nullptr));
            if (AServiceManager_registerLazyService(service.get(), kInstance) == STATUS_OK)
                ABinderProcess_joinThreadPool();
        });
        (void)Connect();
    }
    static void Request(const RawSocket& client, int32_t duration_ms, transaction_code_t code = 1) {
        std::string bytes = "BirQ\0\0\0\0\4\0\0\0\0\0\0\0"s;
        std::memcpy(&bytes[4], &code, sizeof(code));
        std::memcpy(&bytes[12], &duration_ms, sizeof(duration_ms));
        EXPECT_EQ(Send(client.Fd(), bytes), 16);
    }
    // The number of the call that `client` gets a reply to; 0: the connection was closed.
    static int32_t Reply(const RawSocket& client) {
        int32_t number = 0;
        const std::string bytes = Receive(client);
        EXPECT_TRUE(bytes.empty() || bytes.size() == 16) << bytes;
        if (bytes.size() == 16) std::memcpy(&number, &bytes[12], sizeof(number));
        return number;
    }
    const RawSocket& AddClient() {
        clients_.emplace_back().Connect();
        return clients_.back();
    }
    void AwaitStop() { EXPECT_EQ(waitpid(server_->Pid(), nullptr, WUNTRACED), server_->Pid()); }
    void Stop() {
        server_->Kill(SIGSTOP);
        AwaitStop();
    }
    std::optional<Child> server_;
    std::deque<RawSocket> clients_;
};

TEST_F(ServerTest, ARoundOfSlowCallsEndsEarlyAndLosesNoEvent) {
    for (int32_t calls = 1; calls <= 4; ++calls) {
        Request(AddClient(), 0);
        EXPECT_EQ(Reply(clients_.back()), calls);
    }
    Stop();
    Request(clients_[1], 5, kStop);
    for (const size_t i : {2, 3}) Request(clients_[i], 5);
    server_->Kill(SIGCONT);
    AwaitStop();
    Request(clients_[0], 5);  // The oldest turn, but ready only now.
    server_->Kill(SIGCONT);
    for (int32_t calls = 4; const size_t i : {1, 0, 2, 3}) EXPECT_EQ(Reply(clients_[i]), ++calls);

    // The second request of client 3 is held back. The event that its reply was taken comes in a
    // round that ends before its turn.
    for (int i = 0; i < 2; ++i) Request(clients_[3], 0);
    for (int round = 0; round < 4; ++round) {
        Request(clients_[2], 0);
        EXPECT_GT(Reply(clients_[2]), 8);
    }
    Stop();
    EXPECT_GT(Reply(clients_[3]), 8);
    for (const size_t i : {0, 1}) Request(clients_[i], 5);
    server_->Kill(SIGCONT);
    EXPECT_EQ(Reply(clients_[3]), 16);
}

TEST_F(ServerTest, AUserWithAllItsPlacesLosesConnectionsThatAreSilentFor10Seconds) {
    for (int i = 0; i < 64; ++i) {
        Request(AddClient(), 0);
        pollfd replied{clients_.back().Fd(), POLLIN, 0};
        ASSERT_EQ(poll(&replied, 1, 60'000), 1);
    }
    // A peer that shuts down keeps its place until it takes its reply.
    EXPECT_EQ(shutdown(clients_[63].Fd(), SHUT_RDWR), 0);
    EXPECT_EQ(Reply(AddClient()), 0);
    for (size_t i = 0; i < 63; ++i) EXPECT_GT(Reply(clients_[i]), 0);
    const auto use = [&](size_t i, int32_t duration_ms) {
        Request(clients_[i], duration_ms);
        EXPECT_GT(Reply(clients_[i]), 0);
    };
    use(0, 9'999);
    EXPECT_EQ(Reply(AddClient()), 0);
    use(0, 999);
    EXPECT_EQ(Reply(AddClient()), 0);  // The search for silent connections waits for 1 second.
    use(0, 1);
    for (size_t i = 0; i < 63; i += i == 0 ? 3 : 1) use(i, 0);  // all but 1 and 2
    Stop();
    Request(clients_[1], 0);
    Request(AddClient(), 0);
    server_->Kill(SIGCONT);
    EXPECT_GT(Reply(clients_.back()), 0);
    EXPECT_EQ(Reply(clients_[2]), 0);
    EXPECT_GT(Reply(clients_[1]), 0);
    use(0, 1'000);
    EXPECT_EQ(Reply(AddClient()), 0);  // The others were used.
    EXPECT_GT(Reply(clients_[63]), 0);
}

// Other processes connect and leave without a pause.
TEST_F(ServerTest, AFloodOfConnectionsDelaysOthersByAFewRounds) {
    std::deque<Child> flood;
    for (int i = 0; i < 64; ++i) {
        flood.emplace_back([] {
            for (;;) RawSocket().Connect();
        });
    }
    for (int32_t calls = 1; calls <= 20; ++calls) {
        Request(AddClient(), 0);
        ASSERT_EQ(Reply(clients_.back()), calls);
    }
}

}  // namespace
