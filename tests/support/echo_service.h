// A service of five methods, and raw sockets in its place or in front of it.
#pragma once

#include <binder/interface_utils.h>
#include <binder/process.h>
#include <binder/service_manager.h>
#include <child.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <private_root.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <string>

using namespace std::string_literals;

inline constexpr char kInstance[] = "test.IService/default";
inline constexpr char kPath[] = "/run/binder/test.IService/default";

// Code 1 answers twice the number, 2 ends the process, 3 answers more than a parcel holds, 4 the
// largest reply, 5 waits for 11 seconds, 6 for 5 milliseconds; others are unknown.
inline binder_status_t OnTransact(AIBinder*, transaction_code_t code, const AParcel* request,
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
        case 5:
            return sleep(11) == 0 ? STATUS_OK : STATUS_UNKNOWN_ERROR;
        case 6:
            return usleep(5000) == 0 ? STATUS_OK : STATUS_UNKNOWN_ERROR;
        default:
            return STATUS_UNKNOWN_TRANSACTION;
    }
}

inline binder_status_t Register() {
    static AIBinder_Class* const clazz = AIBinder_Class_define(
        "test.IService", [](void*) -> void* { return nullptr; }, [](void*) {}, OnTransact);
    const binder::StrongBinder binder(AIBinder_new(clazz, nullptr));
    return AServiceManager_registerLazyService(binder.get(), kInstance);
}

// The body of a child. It ends where the registration is refused, with the status's amount.
inline void Serve() {
    if (const binder_status_t status = Register()) _exit(-status);
    ABinderProcess_joinThreadPool();
}

inline binder::StrongBinder Connect() {
    binder::StrongBinder binder;
    EXPECT_TRUE(Eventually([&] {
        binder = binder::StrongBinder(AServiceManager_checkService(kInstance));
        return bool(binder);
    }));
    return binder;
}

inline binder_status_t Call(const binder::StrongBinder& binder, transaction_code_t code,
                            int32_t* number) {
    binder::ScopedParcel request, reply;
    if (auto status = AIBinder_prepareTransaction(binder.get(), request.slot())) return status;
    EXPECT_EQ(AParcel_writeInt32(request.get(), *number), STATUS_OK);
    const auto status = AIBinder_transact(binder.get(), code, request.slot(), reply.slot(), 0);
    EXPECT_FALSE(request);
    EXPECT_EQ(bool(reply), status == STATUS_OK);
    return status == STATUS_OK ? AParcel_readInt32(reply.get(), number) : status;
}

inline void ExpectAnswered(const binder::StrongBinder& binder) {
    int32_t number = 21;
    EXPECT_EQ(Call(binder, 1, &number), STATUS_OK);
    EXPECT_EQ(number, 42);
}

// A socket without the library.
class RawSocket {
  public:
    explicit RawSocket(int type = SOCK_SEQPACKET) : fd_(socket(AF_UNIX, type | SOCK_CLOEXEC, 0)) {}
    ~RawSocket() { close(fd_); }
    RawSocket(const RawSocket&) = delete;
    RawSocket& operator=(const RawSocket&) = delete;

    int fd() const { return fd_; }
    void Bind() const {
        MakeDirectory("/run/binder/test.IService");
        ASSERT_EQ(bind(fd_, address(), sizeof address_), 0);
    }
    void Listen() const {
        ASSERT_NO_FATAL_FAILURE(Bind());
        ASSERT_EQ(listen(fd_, 8), 0);
    }
    void Connect() const { ASSERT_EQ(connect(fd_, address(), sizeof address_), 0); }

  private:
    const sockaddr* address() const { return reinterpret_cast<const sockaddr*>(&address_); }

    const sockaddr_un address_{AF_UNIX, "/run/binder/test.IService/default"};
    const int fd_;
};

// A request for twice 21, one that takes 5 milliseconds, and the answer to the first.
inline const std::string kRequest = "BirQ\1\0\0\0\4\0\0\0\x15\0\0\0"s;
inline const std::string kSlowRequest = "BirQ\6\0\0\0\0\0\0\0"s;
inline const std::string kReply = "BirP\0\0\0\0\4\0\0\0\x2a\0\0\0"s;

// What comes within 20 seconds: a message's first bytes, or "" at the connection's end.
inline std::string Receive(const RawSocket& socket) {
    pollfd waiting{socket.fd(), POLLIN, 0};
    if (poll(&waiting, 1, 20'000) != 1) return "nothing came";
    char bytes[64];
    const ssize_t size = recv(socket.fd(), bytes, sizeof bytes, MSG_DONTWAIT);
    return size > 0 ? std::string(bytes, size_t(size)) : "";
}

inline ssize_t Send(int fd, const std::string& bytes) {
    return send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
}
