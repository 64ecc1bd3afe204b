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
#include <cstring>
#include <string>

using binder::StrongBinder;
using namespace std::string_literals;

namespace {

// So many changes of what the server waits for fail.
std::atomic<int>& refused_changes = *static_cast<std::atomic<int>*>(
    mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));

}  // namespace

extern "C" int epoll_ctl(int epoll, int operation, int fd, epoll_event* event) noexcept {
    if (operation == EPOLL_CTL_MOD && refused_changes > 0) {
        --refused_changes;
        errno = ENOMEM;
        return -1;
    }
    return int(syscall(SYS_epoll_ctl, epoll, operation, fd, event));
}

namespace {

using TransportTest = PrivateRootTest;

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
    refused_changes = 1;
    for (int i = 0; i < 2; ++i) EXPECT_EQ(Send(client.fd(), kRequest), 16);
    for (int turn = 0; turn < 3; ++turn) ExpectAnswered(good);
    EXPECT_TRUE(Receive(client).empty() || Receive(client).empty());
    {
        const RawSocket leaves;
        ASSERT_NO_FATAL_FAILURE(leaves.Connect());
        EXPECT_EQ(Send(leaves.fd(), kRequest), 16);
        EXPECT_EQ(Send(leaves.fd(), "BirQ\2\0\0\0\0\0\0\0"s), 12);  // would end the server
        for (int turn = 0; turn < 3; ++turn) ExpectAnswered(good);
    }
    for (int turn = 0; turn < 3; ++turn) ExpectAnswered(good);
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
