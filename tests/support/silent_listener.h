// A service that accepts no connection: its queue holds one, and further ones wait for a place.
#pragma once

#include <daemon.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <string>

class SilentListener {
  public:
    SilentListener() {
        sockaddr_un address{AF_UNIX, {}};
        MakeDirectory(std::filesystem::path(kPath).parent_path());
        (void)unlink(kPath);  // a killed service's
        std::strcpy(address.sun_path, kPath);
        const auto* generic = reinterpret_cast<const sockaddr*>(&address);
        EXPECT_EQ(bind(fd_, generic, sizeof address), 0) << strerror(errno);
        EXPECT_EQ(listen(fd_, 0), 0) << strerror(errno);
    }
    // Those in the queue see the connection end.
    ~SilentListener() { close(fd_); }

  private:
    const int fd_ = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
};
