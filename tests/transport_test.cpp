// Two processes and what lies between them: good and bad messages, and clients that do not behave.
#include <echo_service.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <private_root.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <deque>
#include <string>
#include <vector>

using binder::StrongBinder;
using namespace std::string_literals;

namespace {

// What the kernel tells the server, as this process wants it.
struct Kernel {
    std::atomic<uid_t> user{0};           // who newcomers are
    std::atomic<int> refused_changes{0};  // so many changes of what is waited for fail
};
Kernel& kernel =
    *new (mmap(nullptr, sizeof(Kernel), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
        Kernel;

}  // namespace

extern "C" int getsockopt(int fd, int level, int option, void* value, socklen_t* size) noexcept {
    const int result = int(syscall(SYS_getsockopt, fd, level, option, value, size));
    if (option == SO_PEERCRED) static_cast<ucred*>(value)->uid = kernel.user;
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

TEST_F(TransportTest, AttachedDescriptorsAreDropped) {
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
    ASSERT_EQ(sendmsg(client.fd(), &message, MSG_NOSIGNAL), 12);
    close(ends[1]);
    EXPECT_EQ(Receive(client), "BirP\xc3\xff\xff\xff\0\0\0\0"s);
    pollfd end{ends[0], POLLIN, 0};
    EXPECT_EQ(poll(&end, 1, 10'000), 1);  // Nobody holds the other end any more.
    close(ends[0]);
}

// Takes all 256 places, in the names of four users.
void TakeAllPlaces(std::deque<RawSocket>* clients) {
    for (uid_t i = 0; i < 256; ++i) {
        kernel.user = i / 64;
        ASSERT_NO_FATAL_FAILURE(clients->emplace_back().Connect());
        ASSERT_EQ(Send(clients->back().fd(), kRequest), 16);
        ASSERT_EQ(Receive(clients->back()), kReply);
    }
}

TEST_F(TransportTest, MoreClientsThanPlacesWaitUntilOneLeavesOrIsSilentTooLong) {
    const Child server(Serve);
    (void)Connect();
    std::deque<RawSocket> clients;
    kernel.refused_changes = 1;
    ASSERT_NO_FATAL_FAILURE(TakeAllPlaces(&clients));
    const RawSocket first, second;
    for (const RawSocket* waiting : {&first, &second}) {
        ASSERT_NO_FATAL_FAILURE(waiting->Connect());
        EXPECT_EQ(Send(waiting->fd(), kRequest), 16);
    }
    EXPECT_EQ(Send(clients[0].fd(), kRequest), 16);
    EXPECT_EQ(Receive(clients[0]), kReply);
    pollfd reply{first.fd(), POLLIN, 0};
    EXPECT_EQ(poll(&reply, 1, 0), 0);
    kernel.refused_changes = 1;
    clients.pop_back();
    EXPECT_EQ(Receive(first), kReply);
    // From now on only one of those that have a place asks for something.
    EXPECT_EQ(Send(clients[0].fd(), kRequest), 16);
    EXPECT_EQ(Receive(clients[0]), kReply);
    EXPECT_EQ(Receive(second), kReply);
    EXPECT_EQ(Send(clients[0].fd(), kRequest), 16);
    EXPECT_EQ(Receive(clients[0]), kReply);
    EXPECT_EQ(Receive(clients[1]), "");
}

TEST_F(TransportTest, AUserWithAllHisPlacesIsRefusedAndOthersAreNot) {
    const Child server(Serve);
    kernel.user = 7;
    std::deque<StrongBinder> clients;
    for (int i = 0; i < 64; ++i) ExpectAnswered(clients.emplace_back(Connect()));
    const RawSocket refused;
    ASSERT_NO_FATAL_FAILURE(refused.Connect());
    EXPECT_EQ(Receive(refused), "");
    kernel.user = 8;
    ExpectAnswered(Connect());
    kernel.user = 7;
    const auto admitted = [] {
        int32_t number = 21;
        return Call(Connect(), 1, &number) == STATUS_OK;
    };
    clients.pop_back();
    EXPECT_TRUE(Eventually(admitted));
    // With all places taken again, those that are silent give way to a newcomer after 10 seconds.
    clients.push_back(Connect());
    ExpectAnswered(clients.back());
    EXPECT_FALSE(admitted());
    EXPECT_TRUE(Eventually([&] {
        usleep(100'000);
        ExpectAnswered(clients[0]);
        return admitted();
    }));
    ExpectAnswered(clients[0]);
    int32_t number = 21;
    EXPECT_EQ(Call(clients[1], 1, &number), STATUS_DEAD_OBJECT);
}

// One thread serves: all wait for the call that waits, and nobody else pays for it.
TEST_F(TransportTest, ACallThatWaitsDelaysTheOthersAndNoMore) {
    const Child server(Serve);
    (void)Connect();
    std::deque<RawSocket> clients;
    ASSERT_NO_FATAL_FAILURE(TakeAllPlaces(&clients));
    EXPECT_EQ(Send(clients[0].fd(), "BirQ\5\0\0\0\0\0\0\0"s), 12);
    const auto start = std::chrono::steady_clock::now();
    usleep(200'000);
    for (size_t i = 1; i < clients.size(); ++i) EXPECT_EQ(Send(clients[i].fd(), kRequest), 16);
    const RawSocket newcomer;  // so that places are wanted
    ASSERT_NO_FATAL_FAILURE(newcomer.Connect());
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
