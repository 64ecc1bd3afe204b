// A service that accepts no connection. Its queue holds one; further clients wait in connect.
#pragma once

#include <daemon.h>
#include <raw_socket.h>
#include <unistd.h>

// The destructor ends the connection in the queue.
class SilentListener {
  public:
    SilentListener() {
        (void)unlink(kPath);  // left by a killed service
        socket_.Listen(0);
    }

  private:
    const RawSocket socket_{kPath};
};
