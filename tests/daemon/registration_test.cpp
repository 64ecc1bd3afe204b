// Names and the sockets behind them: who may serve one, and the life of a server that was handed
// its socket.
#include <echo_service.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <private_root.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <deque>
#include <string>

using binder::StrongBinder;

namespace {

using RegistrationTest = PrivateRootTest;

TEST_F(RegistrationTest, NamesThatNobodyServesOrThatCannotBe) {
    const struct {
        std::string instance;
        int error;
    } cases[] = {
        {kInstance, ENOENT},
        {"", EINVAL},
        {"/etc/default", EINVAL},
        {"a/../../etc", EINVAL},
        {"a//b", EINVAL},
        {".a/b", EINVAL},
        {std::string(95, 'a'), ENOENT},
        {std::string(96, 'a'), ENAMETOOLONG},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.instance);
        errno = 0;
        EXPECT_EQ(AServiceManager_checkService(c.instance.c_str()), nullptr);
        EXPECT_EQ(errno, c.error);
    }
    EXPECT_EQ(AServiceManager_checkService(nullptr), nullptr);
    EXPECT_EQ(AServiceManager_registerLazyService(nullptr, kInstance), STATUS_UNEXPECTED_NULL);
}

TEST_F(RegistrationTest, ALivingServerIsNotDisplacedAndADeadOneIsReplaced) {
    Child first([] {
        umask(0);
        Serve();
    });
    ExpectAnswered(Connect());
    struct stat info;
    ASSERT_EQ(stat(kPath, &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0660U);
    ASSERT_EQ(stat("/run/binder/test.IService", &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0711U);
    EXPECT_EQ(Child(Serve).Wait(), EEXIST);
    first.Kill();
    (void)first.Wait();
    EXPECT_EQ(AServiceManager_checkService(kInstance), nullptr);
    EXPECT_EQ(errno, ECONNREFUSED);
    const Child second(Serve);
    ExpectAnswered(Connect());
}

TEST_F(RegistrationTest, OnlyOneOfManyThatStartAtOnceServes) {
    for (int round = 0; round < 20; ++round) {
        ASSERT_NO_FATAL_FAILURE(ClearPrivateRoot());
        ASSERT_NO_FATAL_FAILURE(RawSocket().Bind());  // a dead server's leftover
        int gate[2], report[2];
        ASSERT_EQ(pipe(gate) | pipe(report), 0);
        std::deque<Child> children;
        for (int i = 0; i < 8; ++i) {
            children.emplace_back([&] {
                close(gate[1]);
                (void)!read(gate[0], &i, sizeof i);  // until the gate opens
                const binder_status_t status = Register();
                (void)!write(report[1], &status, sizeof status);
                pause();
            });
        }
        for (const int end : {gate[0], gate[1], report[1]}) close(end);
        int serving = 0;
        for (size_t i = 0; i < children.size(); ++i) {
            binder_status_t status = 0;
            ASSERT_EQ(read(report[0], &status, sizeof status), ssize_t{sizeof status});
            EXPECT_TRUE(status == STATUS_OK || status == STATUS_ALREADY_EXISTS) << status;
            serving += status == STATUS_OK;
        }
        EXPECT_EQ(serving, 1);
        close(report[0]);
    }
}

TEST_F(RegistrationTest, WhatIsNotADeadServersSocketStays) {
    struct stat info;
    WriteFile(kPath, "mine");
    EXPECT_EQ(Child(Serve).Wait(), ENOTSOCK);
    ASSERT_EQ(stat(kPath, &info), 0);
    EXPECT_EQ(info.st_size, 4);
    WriteLink(kPath, "elsewhere");
    EXPECT_EQ(Child(Serve).Wait(), ENOTSOCK);
    ASSERT_EQ(unlink(kPath), 0);
    const RawSocket stream(SOCK_STREAM);
    ASSERT_NO_FATAL_FAILURE(stream.Listen());
    EXPECT_EQ(Child(Serve).Wait(), EEXIST);
    EXPECT_EQ(stat(kPath, &info), 0);
}

// As systemd does it: the listener is descriptor 3 and outlives its servers.
void ServeHanded(int fd) {
    if (fd != 3) dup2(fd, 3);
    setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
    setenv("LISTEN_FDS", "1", 1);
    Serve();
}

TEST_F(RegistrationTest, AHandedSocketIsServedUntilIdleAndThenByTheNextProcess) {
    const RawSocket listener;
    ASSERT_NO_FATAL_FAILURE(listener.Listen());
    Child first([&] { ServeHanded(listener.fd()); });
    ExpectAnswered(Connect());
    timespec begin{}, end{};
    clock_gettime(CLOCK_MONOTONIC, &begin);
    EXPECT_EQ(first.Wait(), 0);
    clock_gettime(CLOCK_MONOTONIC, &end);
    EXPECT_GE(end.tv_sec - begin.tv_sec, 9);
    const StrongBinder early = Connect();  // before anybody serves
    const Child second([&] { ServeHanded(listener.fd()); });
    ExpectAnswered(early);
    // What is no listening socket of the kind is not taken over.
    EXPECT_EQ(Child([&] { ServeHanded(open("/dev/null", O_RDONLY)); }).Wait(), EINVAL);
}

}  // namespace
