// Who may hold how many connections, and whose turn it is: one user beside others, as the kernel
// shows them to the server.
#include <echo_service.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <private_root.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <deque>
#include <string>
#include <thread>
#include <vector>

using binder::StrongBinder;

namespace {

// The uids that the kernel reports, by the process id of the peer, modulo their number.
using Users = std::atomic<uid_t>[1 << 16];
Users& users = *static_cast<Users*>(
    mmap(nullptr, sizeof(Users), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));

std::atomic<uid_t>& UserOf(pid_t pid) {
    return users[size_t(pid) % std::size(users)];
}

void BecomeUser(uid_t user) {
    UserOf(getpid()) = user;
}

}  // namespace

extern "C" int getsockopt(int fd, int level, int option, void* value, socklen_t* size) noexcept {
    const int result = int(syscall(SYS_getsockopt, fd, level, option, value, size));
    auto* const peer = static_cast<ucred*>(value);
    if (option == SO_PEERCRED) peer->uid = UserOf(peer->pid);
    return result;
}

namespace {

using ConnectionsTest = PrivateRootTest;

// Connects as a user and asks. False: the connection is closed instead.
bool Admitted(uid_t user, std::deque<RawSocket>* clients) {
    BecomeUser(user);
    clients->emplace_back().Connect();
    (void)Send(clients->back().fd(), kRequest);
    pollfd waiting{clients->back().fd(), POLLIN, 0};
    char byte;
    if (poll(&waiting, 1, 20'000) == 1 && recv(waiting.fd, &byte, 1, MSG_PEEK) == 1) return true;
    clients->pop_back();
    return false;
}

TEST_F(ConnectionsTest, NoAccountTakesThePlacesOfOthers) {
    const Child server(Serve);
    (void)Connect();
    const struct {
        uid_t user;
        int wanted, admitted;
    } cases[] = {
        {7, 65, 64},       {100'000, 63, 63}, {165'535, 2, 1},  // the range's last uid
        {165'536, 65, 64}, {231'072, 1, 0},  // no account has more subordinate uids than these
        {8, 49, 48},       {9, 1, 0},         {0, 17, 16},
    };
    // None takes its reply: all of them stay.
    std::deque<RawSocket> clients;
    for (const auto& c : cases) {
        int admitted = 0;
        for (int i = 0; i < c.wanted; ++i) admitted += Admitted(c.user, &clients);
        EXPECT_EQ(admitted, c.admitted) << c.user;
    }
    // Nor does shutting down free a place while the reply stays.
    for (size_t i = 2; i < 64; ++i) EXPECT_EQ(shutdown(clients[i].fd(), SHUT_RDWR), 0);
    EXPECT_FALSE(Admitted(7, &clients));
    // A user with fewer connections displaces one that took its reply, of the user with the most,
    // and no other.
    std::deque<RawSocket> others;
    for (const size_t i : {size_t{0}, size_t{1}, size_t{128}, size_t{192}, clients.size() - 1}) {
        EXPECT_EQ(Receive(clients[i]), kReply);
    }
    EXPECT_TRUE(Admitted(231'072, &others));
    EXPECT_EQ(Receive(clients[128]), "");
    for (const size_t i : {0, 1, 192}) {
        EXPECT_TRUE(Admitted(9, &others));
        EXPECT_EQ(Receive(clients[i]), "");
    }
    EXPECT_FALSE(Admitted(9, &others));
    EXPECT_FALSE(Admitted(0, &others));
    EXPECT_EQ(Send(clients.back().fd(), kRequest), 16);
    EXPECT_EQ(Receive(clients.back()), kReply);
}

TEST_F(ConnectionsTest, AUserWithAllItsPlacesGetsThoseThatAreSilentTooLong) {
    const Child server(Serve);
    (void)Connect();
    std::deque<RawSocket> clients;
    for (int i = 0; i < 64; ++i) ASSERT_TRUE(Admitted(7, &clients));
    for (int i = 0; i < 63; ++i) EXPECT_EQ(Receive(clients[size_t(i)]), kReply);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(Eventually([&] {
        EXPECT_EQ(Send(clients[0].fd(), kRequest), 16);
        EXPECT_EQ(Receive(clients[0]), kReply);
        usleep(100'000);
        return Admitted(7, &clients);
    }));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(9));
    EXPECT_EQ(Receive(clients[1]), "");
    for (const size_t other : {0, 2}) {
        EXPECT_EQ(Send(clients[other].fd(), kRequest), 16);
        EXPECT_EQ(Receive(clients[other]), kReply);
    }
    EXPECT_EQ(Receive(clients[63]), kReply);  // it was not closed while it had a reply to take
}

// Rounds of calls that take long end early; the next one begins with the user that has waited
// longest, and goes on with the connections that were not served.
TEST_F(ConnectionsTest, UsersTakeTurnsAndConnectionsWithinAUser) {
    const Child server(Serve);
    (void)Connect();
    std::deque<RawSocket> clients;
    std::vector<pollfd> replies;
    for (size_t i = 0; i < 17; ++i) {
        ASSERT_TRUE(Admitted(i < 16 ? 7 : 8, &clients));
        EXPECT_EQ(Receive(clients[i]), kReply);
        replies.push_back({clients[i].fd(), POLLIN, 0});
    }
    for (const RawSocket& client : clients) EXPECT_EQ(Send(client.fd(), kSlowRequest), 12);
    std::vector<int> answers(clients.size());
    for (int sum = 0; sum < 200 && poll(replies.data(), replies.size(), 20'000) > 0;) {
        for (size_t i = 0; i < replies.size(); ++i) {
            if (replies[i].revents == 0) continue;
            EXPECT_EQ(Receive(clients[i]), "BirP\0\0\0\0\0\0\0\0"s);
            EXPECT_EQ(Send(replies[i].fd, kSlowRequest), 12);
            ++answers[i], ++sum;
        }
    }
    EXPECT_GT(answers.back(), 200 / 17 * 3 / 2);
    EXPECT_GT(*std::ranges::min_element(answers), 200 / 17 / 3);
}

// A request that waits behind a reply is announced once when that was taken: here in a round that
// ends before its turn.
TEST_F(ConnectionsTest, AHeldBackRequestIsServedAfterARoundThatEndedEarly) {
    const Child server(Serve);
    (void)Connect();
    std::deque<RawSocket> clients;
    for (int round = 0; round < 5; ++round) {
        clients.clear();
        for (const uid_t user : {7, 8, 9}) {
            ASSERT_TRUE(Admitted(user, &clients));
        }
        for (const size_t i : {0, 1}) EXPECT_EQ(Receive(clients[i]), kReply);
        EXPECT_EQ(Send(clients[2].fd(), kRequest), 16);
        BecomeUser(10);
        for (int turn = 0; turn < 3; ++turn) ExpectAnswered(Connect());
        for (const size_t busy : {0, 1}) EXPECT_EQ(Send(clients[busy].fd(), kSlowRequest), 12);
        for (int reply = 0; reply < 2; ++reply) EXPECT_EQ(Receive(clients[2]), kReply);
    }
}

// 64 connections that always ask for what takes 5 milliseconds, and 64 processes that connect and
// leave. Another user is answered nevertheless.
TEST_F(ConnectionsTest, ABusyUserDelaysOthersByAFewCalls) {
    const Child server(Serve);
    const StrongBinder root = Connect();
    std::deque<Child> busy;
    busy.emplace_back([] {
        BecomeUser(7);
        std::deque<RawSocket> clients(64);
        std::vector<pollfd> replies;
        for (const RawSocket& client : clients) {
            client.Connect();
            replies.push_back({client.fd(), POLLIN, 0});
            (void)Send(client.fd(), kSlowRequest);
        }
        while (poll(replies.data(), replies.size(), -1) > 0) {
            for (const pollfd& reply : replies) {
                char bytes[64];
                if (reply.revents != 0 && recv(reply.fd, bytes, sizeof bytes, 0) > 0)
                    (void)Send(reply.fd, kSlowRequest);
            }
        }
    });
    for (int i = 0; i < 64; ++i) {
        busy.emplace_back([] {
            BecomeUser(7);
            for (;;) RawSocket().Connect();
        });
    }
    BecomeUser(0);
    ExpectAnswered(root);
    std::atomic<int> answers = 0;
    std::thread asking([&] {
        for (; answers < 20; ++answers) {
            ExpectAnswered(Connect());
            ExpectAnswered(root);
        }
    });
    EXPECT_TRUE(Eventually([&] { return answers == 20; })) << answers << " of 20 answers";
    busy.clear();
    asking.join();
}

// One thread serves: all clients wait for a call that waits, and lose nothing else by it.
TEST_F(ConnectionsTest, ACallThatWaitsDelaysTheOthersAndNoMore) {
    const Child server(Serve);
    (void)Connect();
    std::deque<RawSocket> clients;
    for (uid_t i = 0; i < 240; ++i) ASSERT_TRUE(Admitted(1 + i / 64, &clients));
    for (const RawSocket& client : clients) EXPECT_EQ(Receive(client), kReply);
    EXPECT_EQ(Send(clients[0].fd(), "BirQ\5\0\0\0\0\0\0\0"s), 12);
    const auto start = std::chrono::steady_clock::now();
    usleep(200'000);
    for (size_t i = 1; i < clients.size(); ++i) EXPECT_EQ(Send(clients[i].fd(), kRequest), 16);
    BecomeUser(1);
    const RawSocket further;  // whose user has all its places
    ASSERT_NO_FATAL_FAILURE(further.Connect());
    EXPECT_EQ(Receive(clients[0]), "BirP\0\0\0\0\0\0\0\0"s);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    for (size_t i = 1; i < clients.size(); ++i) ASSERT_EQ(Receive(clients[i]), kReply) << i;
}

}  // namespace
