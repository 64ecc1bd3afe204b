// A Unix socket without the IPC library: a server that accepts nothing by itself, or a client that
// sends any bytes.
#pragma once

#include <base/retry.h>
#include <base/unique_fd.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <private_root.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

class RawSocket {
  public:
    explicit RawSocket(const char* path = "/run/binder/test.IService/default",
                       int type = SOCK_SEQPACKET)
        : fd_(socket(AF_UNIX, type | SOCK_CLOEXEC, 0)) {
        std::strcpy(address_.sun_path, path);
    }

    int Fd() const { return fd_.get(); }
    void Listen(int backlog = 8) const {
        MakeDirectory(std::filesystem::path(address_.sun_path).parent_path());
        ASSERT_EQ(bind(Fd(), Address(), sizeof(address_)), 0) << strerror(errno);
        ASSERT_EQ(listen(Fd(), backlog), 0) << strerror(errno);
    }
    void Connect() const {
        ASSERT_EQ(connect(Fd(), Address(), sizeof(address_)), 0) << strerror(errno);
    }

  private:
    const sockaddr* Address() const { return reinterpret_cast<const sockaddr*>(&address_); }

    sockaddr_un address_{AF_UNIX, {}};
    base::UniqueFd fd_;
};

inline ssize_t Send(int fd, const std::string& bytes) {
    return send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

// The first bytes of the next message; "" at the end of the connection.
inline std::string Receive(const RawSocket& socket) {
    pollfd waiting{socket.Fd(), POLLIN, 0};
    const auto wait = [&] { return poll(&waiting, 1, 60'000); };
    if (base::RetryOnInterrupt(wait) != 1) return "no message within a minute";
    char bytes[64];
    const ssize_t size = recv(socket.Fd(), bytes, sizeof(bytes), MSG_DONTWAIT);
    return size > 0 ? std::string(bytes, static_cast<size_t>(size)) : "";
}

inline constexpr const char* kHandOverVariables[] = {"LISTEN_FDS", "LISTEN_FDNAMES", "LISTEN_PID"};

// Passes a listener to this process as systemd does: as descriptor 3.
inline void HandOver(int listener) {
    if (listener != 3) dup2(listener, 3);
    fcntl(3, F_SETFD, 0);
    for (const char* name : kHandOverVariables) setenv(name, "1", 1);
    setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
}
