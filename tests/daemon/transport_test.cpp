// Messages between two processes: well-formed and malformed ones, and peers that misbehave.
#include <echo_service.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <optional>

using binder::StrongBinder;

namespace {

const std::string kStopRequest = "BirQ\2\0\0\0\4\0\0\0\0\0\0\0"s;  // ends the server

class TransportTest : public PrivateRootTest {
  protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(PrivateRootTest::SetUp());
        server_.emplace(Serve);
        good_ = Connect();
    }
    // Three replies: by then the server has handled what other clients sent before.
    void ExpectAnswers() const {
        for (int i = 0; i < 3; ++i) ExpectAnswered(good_);
    }

    std::optional<Child> server_;
    StrongBinder good_;
};

TEST_F(TransportTest, AReplyHasDataOnlyOnSuccessAndNeverTooMuch) {
    EXPECT_TRUE(AIBinder_isRemote(good_.get()));
    EXPECT_EQ(AIBinder_getUserData(good_.get()), nullptr);
    EXPECT_EQ(AIBinder_dump(good_.get(), 1, nullptr, 0), STATUS_UNKNOWN_TRANSACTION);
    int32_t number = 65536;
    EXPECT_EQ(Call(good_, 3, &number), STATUS_NO_MEMORY);
    EXPECT_EQ(Call(good_, 4, &number), -74);
    EXPECT_EQ(Call(good_, 99, &number), -74);
    number = 65528;
    EXPECT_EQ(Call(good_, 3, &number), STATUS_OK);
    EXPECT_EQ(number, 65528);
    ExpectAnswered(good_);
}

TEST_F(TransportTest, AMalformedMessageEndsItsConnectionOnly) {
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
        {"largest", "BirQ\1\0\0\0\0\0\1\0\x15"s + std::string(65535, '\0'), kReply},
        {"one byte more than its header", "BirQ\1\0\0\0\0\0\1\0\x15"s + std::string(65536, '\0'),
         ""},
        {"one byte more", "BirQ\1\0\0\0\1\0\1\0\x15"s + std::string(65536, '\0'), ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const RawSocket client;
        ASSERT_NO_FATAL_FAILURE(client.Connect());
        EXPECT_EQ(Send(client.Fd(), c.message), ssize_t(c.message.size()));
        EXPECT_EQ(Receive(client), c.reply);
        ExpectAnswered(good_);
    }
}

TEST_F(TransportTest, AConnectionBelongsToOneProcess) {
    Child forked([&] {
        int32_t number = 21;
        _exit(-Call(good_, 1, &number));
    });
    EXPECT_EQ(forked.Wait(), -STATUS_DEAD_OBJECT);
    ExpectAnswered(good_);
}

TEST_F(TransportTest, AttachedDescriptorsAreRejectedOrClosed) {
    const RawSocket client;
    ASSERT_NO_FATAL_FAILURE(client.Connect());
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    std::string text = "BirQ\1\0\0\0\0\0\0\0"s;
    iovec bytes{text.data(), text.size()};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    const msghdr message{nullptr, 0, &bytes, 1, control, sizeof(control), 0};
    *CMSG_FIRSTHDR(&message) = {CMSG_LEN(sizeof(int)), SOL_SOCKET, SCM_RIGHTS};
    std::memcpy(CMSG_DATA(CMSG_FIRSTHDR(&message)), &ends[1], sizeof(int));
    if (sendmsg(client.Fd(), &message, MSG_NOSIGNAL) == 12) {
        EXPECT_EQ(Receive(client), "BirP\xc3\xff\xff\xff\0\0\0\0"s);
    } else {
        EXPECT_EQ(errno, EPERM);  // Linux 6.16 and newer
    }
    close(ends[1]);
    pollfd end{ends[0], POLLIN, 0};
    EXPECT_EQ(poll(&end, 1, 60'000), 1) << "the server keeps the other end of the pipe";
    close(ends[0]);
}

TEST_F(TransportTest, ARequestWaitsUntilThePeerTookThePreviousReply) {
    const RawSocket client;
    ASSERT_NO_FATAL_FAILURE(client.Connect());
    for (int i = 0; i < 4; ++i) EXPECT_EQ(Send(client.Fd(), kRequest), 16);
    for (int i = 0; i < 4; ++i) {
        pollfd waiting{client.Fd(), POLLIN, 0};
        EXPECT_EQ(poll(&waiting, 1, 60'000), 1);
        ExpectAnswers();
        int unread = 0;
        EXPECT_EQ(ioctl(client.Fd(), FIONREAD, &unread), 0);
        EXPECT_EQ(unread, 16) << "more than one reply";
        EXPECT_EQ(Receive(client), kReply);
    }
    {
        const RawSocket leaves;
        ASSERT_NO_FATAL_FAILURE(leaves.Connect());
        EXPECT_EQ(Send(leaves.Fd(), kRequest), 16);
        EXPECT_EQ(Send(leaves.Fd(), kStopRequest), 16);
        ExpectAnswers();
    }
    ExpectAnswers();
    EXPECT_EQ(Send(client.Fd(), kRequest), 16);
    EXPECT_EQ(Receive(client), kReply);
}

TEST_F(PrivateRootTest, AMalformedReplyIsAFailedTransaction) {
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
        {"too large", "BirP\0\0\0\0\1\0\1\0"s + std::string(65537, '\0'),
         STATUS_FAILED_TRANSACTION},
    };
    const RawSocket listener;
    ASSERT_NO_FATAL_FAILURE(listener.Listen());
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const StrongBinder binder = Connect();
        const int peer = accept(listener.Fd(), nullptr, nullptr);
        // The replies to both calls are sent before the calls.
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
