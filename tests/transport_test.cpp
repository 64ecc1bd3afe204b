// Two processes and what lies between them: good and bad messages, and clients that do not behave.
#include <echo_service.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <private_root.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <deque>
#include <string>
#include <thread>
#include <vector>

using binder::StrongBinder;
using namespace std::string_literals;

namespace {

// The kernel's answers to the server, as this process wants them.
struct Kernel {
    std::atomic<uid_t> users[1 << 16];  // by the process id of the peer, modulo their number
    std::atomic<int> refused_changes;   // so many changes of what is waited for fail
    std::atomic<uid_t>& user(pid_t pid = getpid()) { return users[pid % std::size(users)]; }
};
Kernel& kernel = *static_cast<Kernel*>(
    mmap(nullptr, sizeof(Kernel), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));

}  // namespace

extern "C" int getsockopt(int fd, int level, int option, void* value, socklen_t* size) noexcept {
    const int result = int(syscall(SYS_getsockopt, fd, level, option, value, size));
    auto* const peer = static_cast<ucred*>(value);
    if (option == SO_PEERCRED) peer->uid = kernel.user(peer->pid);
    return result;
}

extern "C" int epoll_ctl(int epoll, int operation, int fd, epoll_event* event) noexcept {
    if (operation == EPOLL_CTL_MOD && kernel.refused_changes > 0) {
        --kernel.refused_changes;
        errno = ENOMEM;
        return -1;
    }
    return int(syscall(SYS_epoll_ctl, epoll, operation, fd, event));
}

namespace {

using TransportTest = PrivateRootTest;

const std::string kRequest = "BirQ\1\0\0\0\4\0\0\0\x15\0\0\0"s;
const std::string kSlowRequest = "BirQ\6\0\0\0\0\0\0\0"s;
const std::string kReply = "BirP\0\0\0\0\4\0\0\0\x2a\0\0\0"s;

// What comes within 20 seconds: a message's first bytes, or "" at the connection's end.
std::string Receive(const RawSocket& socket) {
    pollfd waiting{socket.fd(), POLLIN, 0};
    if (poll(&waiting, 1, 20'000) != 1) return "nothing came";
    char bytes[64];
    const ssize_t size = recv(socket.fd(), bytes, sizeof bytes, MSG_DONTWAIT);
    return size > 0 ? std::string(bytes, size_t(size)) : "";
}

ssize_t Send(int fd, const std::string& bytes) {
    return send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

TEST_F(TransportTest, RequestsAreAnsweredWithRepliesOrStatuses) {
    const Child server(Serve);
    const StrongBinder binder = Connect();
    EXPECT_TRUE(AIBinder_isRemote(binder.get()));
    EXPECT_EQ(AIBinder_getUserData(binder.get()), nullptr);
    EXPECT_EQ(AIBinder_dump(binder.get(), 1, nullptr, 0), STATUS_UNKNOWN_TRANSACTION);
    int32_t number = 0;
    EXPECT_EQ(Call(binder, 99, &number), -74);
    EXPECT_EQ(Call(binder, 3, &number), STATUS_NO_MEMORY);
    EXPECT_EQ(Call(binder, 4, &number), STATUS_OK);
    EXPECT_EQ(number, 65528);
    ExpectAnswered(binder);
}

TEST_F(TransportTest, AServerThatDiesMidCallIsADeadObject) {
    const Child server(Serve);
    const StrongBinder binder = Connect();
    int32_t number = 0;
    EXPECT_EQ(Call(binder, 2, &number), STATUS_DEAD_OBJECT);
    EXPECT_EQ(Call(binder, 1, &number), STATUS_DEAD_OBJECT);
}

TEST_F(TransportTest, MalformedMessagesCostTheirConnectionAlone) {
    const Child server(Serve);
    const StrongBinder good = Connect();
    const struct {
        const char* what;
        std::string message;
        std::string reply;  // "": the connection is closed
    } cases[] = {
        {"good", kRequest, kReply},
        {"no data", "BirQ\1\0\0\0\0\0\0\0"s, "BirP\xc3\xff\xff\xff\0\0\0\0"s},
        {"short header", "BirQ\1\0\0\0\0\0\0"s, ""},
        {"empty", "", ""},
        {"a reply", "BirP\1\0\0\0\4\0\0\0\x15\0\0\0"s, ""},
        {"no magic", "\0\0\0\0\1\0\0\0\4\0\0\0\x15\0\0\0"s, ""},
        {"size too small", "BirQ\1\0\0\0\3\0\0\0\x15\0\0\0"s, ""},
        {"size too large", "BirQ\1\0\0\0\5\0\0\0\x15\0\0\0"s, ""},
        {"size negative", "BirQ\1\0\0\0\xff\xff\xff\xff\x15\0\0\0"s, ""},
        {"largest", "BirQ\1\0\0\0\0\0\1\0\x15"s + std::string(65535, '\0'),
         "BirP\0\0\0\0\4\0\0\0\x2a\0\0\0"s},
        {"one byte more", "BirQ\1\0\0\0\1\0\1\0\x15"s + std::string(65536, '\0'), ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const RawSocket client;
        ASSERT_NO_FATAL_FAILURE(client.Connect());
        EXPECT_EQ(Send(client.fd(), c.message), ssize_t(c.message.size()));
        EXPECT_EQ(Receive(client), c.reply);
        ExpectAnswered(good);
    }
}

TEST_F(TransportTest, AttachedDescriptorsAreRejectedOrDropped) {
    const Child server(Serve);
    const StrongBinder good = Connect();
    const RawSocket client;
    ASSERT_NO_FATAL_FAILURE(client.Connect());
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    char text[] = "BirQ\1\0\0\0\0\0\0";  // and its NUL
    iovec bytes{text, sizeof text};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    const msghdr message{nullptr, 0, &bytes, 1, control, sizeof control, 0};
    *CMSG_FIRSTHDR(&message) = {CMSG_LEN(sizeof(int)), SOL_SOCKET, SCM_RIGHTS};
    std::memcpy(CMSG_DATA(CMSG_FIRSTHDR(&message)), &ends[1], sizeof(int));
    if (sendmsg(client.fd(), &message, MSG_NOSIGNAL) == 12) {
        EXPECT_EQ(Receive(client), "BirP\xc3\xff\xff\xff\0\0\0\0"s);
    } else {
        EXPECT_EQ(errno, EPERM);  // Linux 6.16 and newer
    }
    close(ends[1]);
    pollfd end{ends[0], POLLIN, 0};
    EXPECT_EQ(poll(&end, 1, 10'000), 1);  // Nobody holds the other end any more.
    close(ends[0]);
}

TEST_F(TransportTest, ARequestWaitsUntilTheReplyBeforeItWasTaken) {
    const Child server(Serve);
    const StrongBinder good = Connect();
    const RawSocket client;
    ASSERT_NO_FATAL_FAILURE(client.Connect());
    for (int round = 0; round < 3; ++round) {
        for (int i = 0; i < 3; ++i) EXPECT_EQ(Send(client.fd(), kRequest), 16);
        for (int i = 0; i < 3; ++i) {
            pollfd waiting{client.fd(), POLLIN, 0};
            EXPECT_EQ(poll(&waiting, 1, 20'000), 1);
            for (int turn = 0; turn < 3; ++turn) ExpectAnswered(good);
            int unread = 0;
            EXPECT_EQ(ioctl(client.fd(), FIONREAD, &unread), 0);
            EXPECT_EQ(unread, 16);
            EXPECT_EQ(Receive(client), kReply);
        }
    }
    kernel.refused_changes = 1;
    for (int i = 0; i < 2; ++i) EXPECT_EQ(Send(client.fd(), kRequest), 16);
    EXPECT_TRUE(Receive(client).empty() || Receive(client).empty());
    ExpectAnswered(good);
}

// Connects as a user and asks. False: the connection is closed instead.
bool Admitted(uid_t user, std::deque<RawSocket>* clients) {
    kernel.user() = user;
    clients->emplace_back().Connect();
    (void)Send(clients->back().fd(), kRequest);
    pollfd waiting{clients->back().fd(), POLLIN, 0};
    char byte;
    if (poll(&waiting, 1, 20'000) == 1 && recv(waiting.fd, &byte, 1, MSG_PEEK) == 1) return true;
    clients->pop_back();
    return false;
}

TEST_F(TransportTest, NoAccountTakesThePlacesOfOthers) {
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
    // A user with fewer connections displaces one that took its reply, of the user with the most,
    // and no other.
    std::deque<RawSocket> others;
    for (const size_t i : {size_t{0}, size_t{1}, size_t{128}, clients.size() - 1}) {
        EXPECT_EQ(Receive(clients[i]), kReply);
    }
    EXPECT_TRUE(Admitted(231'072, &others));
    EXPECT_EQ(Receive(clients[128]), "");
    EXPECT_TRUE(Admitted(9, &others));
    EXPECT_EQ(Receive(clients[0]), "");
    EXPECT_TRUE(Admitted(9, &others));
    EXPECT_EQ(Receive(clients[1]), "");
    EXPECT_FALSE(Admitted(9, &others));
    EXPECT_FALSE(Admitted(0, &others));
    EXPECT_EQ(Send(clients.back().fd(), kRequest), 16);
    EXPECT_EQ(Receive(clients.back()), kReply);
}

TEST_F(TransportTest, AUserWithAllItsPlacesGetsThoseThatAreSilentTooLong) {
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

// 64 connections that always ask for what takes a millisecond, and 64 processes that connect and
// leave. Another user is answered nevertheless.
TEST_F(TransportTest, ABusyUserDelaysOthersByAFewCalls) {
    const Child server(Serve);
    const StrongBinder root = Connect();
    std::deque<Child> busy;
    busy.emplace_back([] {
        kernel.user() = 7;
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
            kernel.user() = 7;
            for (;;) RawSocket().Connect();
        });
    }
    kernel.user() = 0;
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

// One thread serves: all wait for the call that waits, and nobody else pays for it.
TEST_F(TransportTest, ACallThatWaitsDelaysTheOthersAndNoMore) {
    const Child server(Serve);
    (void)Connect();
    std::deque<RawSocket> clients;
    for (uid_t i = 0; i < 240; ++i) ASSERT_TRUE(Admitted(1 + i / 64, &clients));
    for (const RawSocket& client : clients) EXPECT_EQ(Receive(client), kReply);
    EXPECT_EQ(Send(clients[0].fd(), "BirQ\5\0\0\0\0\0\0\0"s), 12);
    const auto start = std::chrono::steady_clock::now();
    usleep(200'000);
    for (size_t i = 1; i < clients.size(); ++i) EXPECT_EQ(Send(clients[i].fd(), kRequest), 16);
    kernel.user() = 1;
    const RawSocket further;  // whose user has all its places
    ASSERT_NO_FATAL_FAILURE(further.Connect());
    EXPECT_EQ(Receive(clients[0]), "BirP\0\0\0\0\0\0\0\0"s);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    for (size_t i = 1; i < clients.size(); ++i) ASSERT_EQ(Receive(clients[i]), kReply) << i;
}

TEST_F(TransportTest, RubbishFromTheServerIsAFailedTransaction) {
    const struct {
        const char* what;
        std::string reply;  // "": the connection is closed
        binder_status_t status;
    } cases[] = {
        {"good", kReply, STATUS_OK},
        {"status", "BirP\xb6\xff\xff\xff\0\0\0\0"s, -74},
        {"closed", "", STATUS_DEAD_OBJECT},
        {"short header", "BirP\0\0\0\0\0\0\0"s, STATUS_FAILED_TRANSACTION},
        {"a request", "BirQ\0\0\0\0\4\0\0\0\x2a\0\0\0"s, STATUS_FAILED_TRANSACTION},
        {"status above 0", "BirP\1\0\0\0\0\0\0\0"s, STATUS_FAILED_TRANSACTION},
        {"failure with data", "BirP\xb6\xff\xff\xff\4\0\0\0\x2a\0\0\0"s, STATUS_FAILED_TRANSACTION},
        {"oversized", "BirP\0\0\0\0\1\0\1\0"s + std::string(65537, '\0'),
         STATUS_FAILED_TRANSACTION},
    };
    const RawSocket listener;
    ASSERT_NO_FATAL_FAILURE(listener.Listen());
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const StrongBinder binder = Connect();
        const int peer = accept(listener.fd(), nullptr, nullptr);
        // Two answers wait before the questions are asked.
        for (int i = 0; i < 2; ++i) EXPECT_EQ(Send(peer, c.reply), ssize_t(c.reply.size()));
        int32_t number = 7;
        EXPECT_EQ(Call(binder, 1, &number), c.status);
        EXPECT_EQ(number, c.status == STATUS_OK ? 42 : 7);
        const bool alive = c.status == STATUS_OK || c.status == -74;
        EXPECT_EQ(Call(binder, 1, &number), alive ? c.status : STATUS_DEAD_OBJECT);
        close(peer);
    }
}

}  // namespace
