// Two processes and what lies between them: good and bad messages, names, and the life of a server.
#include <binder/interface_utils.h>
#include <binder/process.h>
#include <binder/service_manager.h>
#include <child.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <private_root.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

using binder::ScopedParcel;
using binder::StrongBinder;

namespace {

constexpr char kInstance[] = "test.IService/default";
constexpr char kPath[] = "/run/binder/test.IService/default";

// Code 1 answers twice the number, 2 ends the process, 3 answers more than a parcel holds, 4 the
// largest reply; others are unknown.
binder_status_t OnTransact(AIBinder*, transaction_code_t code, const AParcel* request,
                           AParcel* reply) {
    int32_t number = 0;
    const std::string large(code == 4 ? 65528 : 65536, 'x');
    switch (code) {
        case 1:
            if (binder_status_t status = AParcel_readInt32(request, &number)) return status;
            return AParcel_writeInt32(reply, number * 2);
        case 2:
            _exit(0);
        case 3:
        case 4:
            return AParcel_writeString(reply, large.data(), int32_t(large.size()));
        default:
            return STATUS_UNKNOWN_TRANSACTION;
    }
}

// Ends with status 10 when the name is refused because it is served, with 11 for other reasons.
void Serve() {
    static AIBinder_Class* const clazz = AIBinder_Class_define(
        "test.IService", [](void*) -> void* { return nullptr; }, [](void*) {}, OnTransact);
    const StrongBinder binder(AIBinder_new(clazz, nullptr));
    const binder_status_t status = AServiceManager_registerLazyService(binder.get(), kInstance);
    if (status != STATUS_OK) _exit(status == STATUS_ALREADY_EXISTS ? 10 : 11);
    ABinderProcess_joinThreadPool();
}

StrongBinder Connect() {
    StrongBinder binder;
    EXPECT_TRUE(Eventually([&] {
        binder = StrongBinder(AServiceManager_checkService(kInstance));
        return bool(binder);
    }));
    return binder;
}

binder_status_t Call(const StrongBinder& binder, transaction_code_t code, int32_t* number) {
    ScopedParcel request, reply;
    if (auto status = AIBinder_prepareTransaction(binder.get(), request.slot())) return status;
    EXPECT_EQ(AParcel_writeInt32(request.get(), *number), STATUS_OK);
    const auto status = AIBinder_transact(binder.get(), code, request.slot(), reply.slot(), 0);
    EXPECT_FALSE(request);
    EXPECT_EQ(bool(reply), status == STATUS_OK);
    return status == STATUS_OK ? AParcel_readInt32(reply.get(), number) : status;
}

void ExpectAnswered(const StrongBinder& binder) {
    int32_t number = 21;
    EXPECT_EQ(Call(binder, 1, &number), STATUS_OK);
    EXPECT_EQ(number, 42);
}

sockaddr_un Address() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, kPath);
    return address;
}

int Bound() {
    MakeDirectory("/run/binder/test.IService");
    const sockaddr_un address = Address();
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    return fd;
}

int RawConnection() {
    const sockaddr_un address = Address();
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    return fd;
}

bool IsClosedByPeer(int fd) {
    pollfd waiting{fd, POLLIN, 0};
    char byte = 0;
    return poll(&waiting, 1, 10'000) == 1 && recv(fd, &byte, 1, MSG_DONTWAIT) <= 0;
}

// Three header words, magic, code or status, and size; then `data_bytes` zeros.
std::string Raw(uint32_t magic, int32_t word, int32_t size, size_t data_bytes) {
    std::string message(12 + data_bytes, '\0');
    std::memcpy(&message[0], &magic, 4);
    std::memcpy(&message[4], &word, 4);
    std::memcpy(&message[8], &size, 4);
    return message;
}
constexpr uint32_t kRequest = 0x51726942, kReply = 0x50726942;

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
    struct stat info;
    ASSERT_EQ(stat(kPath, &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0660U);
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
    } cases[] = {
        {"short header", Raw(kRequest, 1, 0, 0).substr(0, 11)},
        {"one byte", "x"},
        {"empty", ""},
        {"a reply", Raw(kReply, 0, 4, 4)},
        {"no magic", Raw(0, 1, 4, 4)},
        {"size too small", Raw(kRequest, 1, 0, 4)},
        {"size too large", Raw(kRequest, 1, 8, 4)},
        {"size negative", Raw(kRequest, 1, -1, 4)},
        {"oversized", Raw(kRequest, 1, 65540, 65540)},
        {"twice the buffer", Raw(kRequest, 1, 130000, 130000)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const int fd = RawConnection();
        EXPECT_EQ(send(fd, c.message.data(), c.message.size(), 0), ssize_t(c.message.size()));
        EXPECT_TRUE(IsClosedByPeer(fd));
        close(fd);
        ExpectAnswered(good);
    }
}

TEST_F(TransportTest, AClientThatNeverReadsIsDroppedAndHoldsNobodyUp) {
    const Child server(Serve);
    const StrongBinder good = Connect();
    const int fd = RawConnection();
    const std::string request = Raw(kRequest, 4, 0, 0);
    // Some replies fill its queue; then its connection is closed.
    EXPECT_TRUE(Eventually([&] {
        return send(fd, request.data(), request.size(), MSG_NOSIGNAL) < 0 && errno == EPIPE;
    }));
    close(fd);
    ExpectAnswered(good);
}

TEST_F(TransportTest, MoreClientsThanPlacesWaitAndAreAnswered) {
    const Child server(Serve);
    std::vector<StrongBinder> clients;
    for (int i = 0; i < 256; ++i) clients.push_back(Connect());
    for (const StrongBinder& client : clients) ExpectAnswered(client);
    // The next one waits in the queue until a place is free.
    const int waiting = RawConnection();
    const std::string request = Raw(kRequest, 1, 4, 4);
    ASSERT_EQ(send(waiting, request.data(), request.size(), 0), ssize_t(request.size()));
    ExpectAnswered(clients[0]);
    pollfd reply{waiting, POLLIN, 0};
    EXPECT_EQ(poll(&reply, 1, 0), 0);
    clients.pop_back();
    EXPECT_EQ(poll(&reply, 1, 10'000), 1);
    close(waiting);
}

TEST_F(TransportTest, ALivingServerIsNotDisplacedAndADeadOneIsReplaced) {
    Child first(Serve);
    ExpectAnswered(Connect());
    EXPECT_EQ(Child(Serve).Wait(), 10);
    first.Kill();
    (void)first.Wait();
    ASSERT_EQ(access(kPath, F_OK), 0);
    const Child second(Serve);
    ExpectAnswered(Connect());
}

TEST_F(TransportTest, WhatIsNoSocketIsNotReplaced) {
    WriteFile(kPath, "mine");
    EXPECT_EQ(Child(Serve).Wait(), 11);
    struct stat info;
    ASSERT_EQ(stat(kPath, &info), 0);
    EXPECT_EQ(info.st_size, 4);
}

TEST_F(TransportTest, NamesThatNobodyServesOrThatCannotBe) {
    const struct {
        std::string instance;
        int error;
    } cases[] = {{kInstance, ENOENT},
                 {"", EINVAL},
                 {"/etc/default", EINVAL},
                 {"a/../../etc", EINVAL},
                 {"a//b", EINVAL},
                 {"a/", EINVAL},
                 {std::string(200, 'a'), ENAMETOOLONG}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.instance);
        errno = 0;
        EXPECT_EQ(AServiceManager_checkService(c.instance.c_str()), nullptr);
        EXPECT_EQ(errno, c.error);
    }
    EXPECT_EQ(AServiceManager_checkService(nullptr), nullptr);
    close(Bound());  // a dead server's leftover
    EXPECT_EQ(AServiceManager_checkService(kInstance), nullptr);
    EXPECT_EQ(errno, ECONNREFUSED);
}

TEST_F(TransportTest, AServerThatSpeaksRubbishIsAFailedTransaction) {
    const int listener = Bound();
    ASSERT_EQ(listen(listener, 8), 0);
    const std::string cases[] = {"x", Raw(kRequest, 0, 0, 0), Raw(kReply, 0, 4, 0),
                                 Raw(kReply, 0, -1, 4), Raw(kReply, 0, 65540, 65540)};
    for (const std::string& rubbish : cases) {
        SCOPED_TRACE(rubbish.size());
        const Child server([&] {
            const int fd = accept(listener, nullptr, nullptr);
            char request[64];
            (void)!recv(fd, request, sizeof request, 0);
            (void)!send(fd, rubbish.data(), rubbish.size(), MSG_NOSIGNAL);
            pause();
        });
        const StrongBinder binder = Connect();
        int32_t number = 7;
        EXPECT_EQ(Call(binder, 1, &number), STATUS_FAILED_TRANSACTION);
        EXPECT_EQ(Call(binder, 1, &number), STATUS_DEAD_OBJECT);
        EXPECT_EQ(number, 7);
    }
    close(listener);
}

// As systemd does it: the listener is descriptor 3 and outlives its servers.
TEST_F(TransportTest, AHandedSocketIsServedUntilIdleAndThenByTheNextProcess) {
    const int listener = Bound();
    ASSERT_EQ(listen(listener, 8), 0);
    const auto serve_handed = [&] {
        if (listener != 3) dup2(listener, 3);
        setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
        setenv("LISTEN_FDS", "1", 1);
        Serve();
    };
    Child first(serve_handed);
    ExpectAnswered(Connect());
    timespec begin{}, end{};
    clock_gettime(CLOCK_MONOTONIC, &begin);
    EXPECT_EQ(first.Wait(), 0);
    clock_gettime(CLOCK_MONOTONIC, &end);
    EXPECT_GE(end.tv_sec - begin.tv_sec, 9);
    const StrongBinder early = Connect();  // before anybody serves
    const Child second(serve_handed);
    ExpectAnswered(early);

    Child stranger([&] {
        const int file = open("/dev/null", O_RDONLY);
        if (file != 3) dup2(file, 3);
        setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
        setenv("LISTEN_FDS", "1", 1);
        Serve();
    });
    EXPECT_EQ(stranger.Wait(), 11);
    close(listener);
}

}  // namespace
