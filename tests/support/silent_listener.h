// A service that accepts no connection: its queue holds one, and further ones wait for a place.
#pragma once

#include <gtest/gtest.h>
#include <private_root.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <string>

class SilentListener {
  public:
    SilentListener() {
        sockaddr_un address{AF_UNIX, {}};
        const std::string path =
            "/run/binder/com.quendar.tavisk.disk_info.IDiskInfoService/default";
        MakeDirectory(path.substr(0, path.rfind('/')));
        (void)unlink(path.c_str());  // a killed service's
        path.copy(address.sun_path, path.size());
        const auto* generic = reinterpret_cast<const sockaddr*>(&address);
        EXPECT_EQ(bind(fd_, generic, sizeof address), 0) << strerror(errno);
        EXPECT_EQ(listen(fd_, 0), 0) << strerror(errno);
    }
    // Those in the queue see the connection end.
    ~SilentListener() { close(fd_); }

  private:
    const int fd_ = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
};
