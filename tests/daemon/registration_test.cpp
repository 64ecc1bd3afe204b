// Names and their sockets: which process may serve a name, and when a server exits.
#include <echo_service.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <deque>

using binder::StrongBinder;

// Gives other processes time between the check of a leftover socket and its removal.
extern "C" int unlinkat(int directory, const char* name, int flags) noexcept {
    usleep(50'000);
    return static_cast<int>(syscall(SYS_unlinkat, directory, name, flags));
}

namespace {

using RegistrationTest = PrivateRootTest;

TEST_F(RegistrationTest, ANameThatNoProcessServesOrThatIsNoPathIsNotFound) {
    const std::pair<std::string, int> cases[] = {
        {kInstance, ENOENT},
        {"", EINVAL},
        {"/etc/default", EINVAL},
        {"a/../../etc", EINVAL},
        {"a//b", EINVAL},
        {".a/b", EINVAL},
        {"a..b", EINVAL},
        {"a/", EINVAL},
        {"a/.b", EINVAL},
        {std::string(95, 'a'), ENOENT},
        {std::string(96, 'a'), ENAMETOOLONG},
    };
    for (const auto& [instance, error] : cases) {
        EXPECT_EQ(AServiceManager_checkService(instance.c_str()), nullptr);
        EXPECT_EQ(errno, error) << instance;
    }
    EXPECT_EQ(AServiceManager_checkService(nullptr), nullptr);
    EXPECT_EQ(AServiceManager_registerLazyService(nullptr, kInstance), STATUS_UNEXPECTED_NULL);
}

mode_t ModeOf(const char* path) {
    struct stat info = {};
    EXPECT_EQ(stat(path, &info), 0) << path;
    return info.st_mode & 07777;
}

TEST_F(RegistrationTest, OnlyADeadServerIsReplaced) {
    Child first([] {
        umask(0);
        Serve();
    });
    ExpectAnswered(Connect());
    EXPECT_EQ(ModeOf(kPath), 0660U);
    EXPECT_EQ(ModeOf("/run/binder/test.IService"), 0711U);
    EXPECT_EQ(Child(Serve).Wait(), EEXIST);
    first.Kill();
    (void)first.Wait();
    EXPECT_EQ(AServiceManager_checkService(kInstance), nullptr);
    EXPECT_EQ(errno, ECONNREFUSED);
    const Child second(Serve);
    ExpectAnswered(Connect());
}

TEST_F(RegistrationTest, OfServersThatStartTogetherOneServes) {
    ASSERT_NO_FATAL_FAILURE(RawSocket().Listen());  // leaves the socket of a dead server
    int gate[2], report[2];
    ASSERT_EQ(pipe(gate) | pipe(report), 0);
    std::deque<Child> children;
    for (int i = 0; i < 8; ++i) {
        children.emplace_back([&] {
            close(gate[1]);
            (void)!read(gate[0], &i, sizeof(i));  // returns when the test closes the gate
            const binder_status_t status = Register();
            (void)!write(report[1], &status, sizeof(status));
            pause();
        });
    }
    for (const int end : {gate[0], gate[1], report[1]}) close(end);
    int serving = 0;
    for (size_t i = 0; i < children.size(); ++i) {
        binder_status_t status = 0;
        ASSERT_EQ(read(report[0], &status, sizeof(status)), ssize_t{sizeof(status)});
        EXPECT_TRUE(status == STATUS_OK || status == STATUS_ALREADY_EXISTS) << status;
        serving += status == STATUS_OK;
    }
    EXPECT_EQ(serving, 1);
    close(report[0]);
}

TEST_F(RegistrationTest, SymbolicLinksAreNotFollowed) {
    ASSERT_EQ(symlink("/run", "/run/binder"), 0);
    EXPECT_EQ(Child([] { _exit(-Register()); }).Wait(), ENOTDIR);
    EXPECT_FALSE(std::filesystem::exists("/run/test.IService"));
}

TEST_F(RegistrationTest, WhatIsNotADeadServersSocketStays) {
    WriteFile(kPath, "mine");
    EXPECT_EQ(Child(Serve).Wait(), ENOTSOCK);
    EXPECT_EQ(std::filesystem::file_size(kPath), 4U);
    WriteLink(kPath, "elsewhere");
    EXPECT_EQ(Child(Serve).Wait(), ENOTSOCK);
    ASSERT_EQ(unlink(kPath), 0);
    const RawSocket stream(kPath, SOCK_STREAM);
    ASSERT_NO_FATAL_FAILURE(stream.Listen());
    EXPECT_EQ(Child(Serve).Wait(), EEXIST);
    EXPECT_TRUE(std::filesystem::is_socket(kPath));
}

void ServeHanded(int listener) {
    HandOver(listener);
    Serve();
}

TEST_F(RegistrationTest, TheVariablesOfAHandedSocketAreRemoved) {
    const RawSocket listener;
    ASSERT_NO_FATAL_FAILURE(listener.Listen());
    Child server([&] {
        HandOver(listener.Fd());
        if (Register() != STATUS_OK) _exit(100);
        _exit(static_cast<int>(std::ranges::count_if(kHandOverVariables, getenv)));
    });
    EXPECT_EQ(server.Wait(), 0) << "100: not registered; others: number of variables";
    EXPECT_EQ(Child([&] { ServeHanded(open("/dev/null", O_RDONLY)); }).Wait(), EINVAL);
}

TEST_F(RegistrationTest, OnlyAServerOfAHandedSocketExitsAfterTenSecondsWithoutClients) {
    const Child own_socket(Serve);
    ExpectAnswered(Connect());
    const RawSocket used("/run/binder/used"), unused("/run/binder/unused");
    ASSERT_NO_FATAL_FAILURE(used.Listen());
    ASSERT_NO_FATAL_FAILURE(unused.Listen());
    const auto start = std::chrono::steady_clock::now();
    Child first([&] { ServeHanded(used.Fd()); });
    Child without_client([&] { ServeHanded(unused.Fd()); });
    ExpectAnswered(Connect("used"));
    EXPECT_EQ(without_client.Wait(), 0);
    EXPECT_EQ(first.Wait(), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(9'900));
    const StrongBinder early = Connect("used");  // before a process serves the socket
    const Child second([&] { ServeHanded(used.Fd()); });
    ExpectAnswered(early);
    ExpectAnswered(Connect());
}

TEST_F(RegistrationTest, ATerminatedServerOfAHandedSocketAnswersItsClientsAndLeavesLaterOnes) {
    const RawSocket listener, idle, busy, later;
    ASSERT_NO_FATAL_FAILURE(listener.Listen());
    Child first([&] { ServeHanded(listener.Fd()); });
    for (const RawSocket* client : {&idle, &busy}) {
        ASSERT_NO_FATAL_FAILURE(client->Connect());
        ASSERT_GT(Send(client->Fd(), kRequest), 0);
        EXPECT_EQ(Receive(*client), kReply);
    }
    first.Kill(SIGSTOP);
    ASSERT_GT(Send(busy.Fd(), kRequest), 0);
    ASSERT_NO_FATAL_FAILURE(later.Connect());
    ASSERT_GT(Send(later.Fd(), kRequest), 0);
    first.Kill(SIGTERM);
    first.Kill(SIGCONT);
    EXPECT_EQ(Receive(busy), kReply);
    EXPECT_EQ(first.Wait(), 0) << "an idle client kept the server";
    const Child second([&] { ServeHanded(listener.Fd()); });
    EXPECT_EQ(Receive(later), kReply);
}

TEST_F(RegistrationTest, AServerEndsWithTheTestThatStartedIt) {
    Child test([] {
        const Child server(Serve);
        pause();
    });
    ExpectAnswered(Connect());
    test.Kill();
    EXPECT_TRUE(Eventually([] { return !StrongBinder(AServiceManager_checkService(kInstance)); }));
}

}  // namespace
