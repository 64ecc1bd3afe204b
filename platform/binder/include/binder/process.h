// Serving of the registered name. For one thread.
#pragma once

#include <cstdint>

// Sets the maximum number of threads that serve in addition to the joining one. Returns true and
// has no effect: only the joining thread serves.
bool ABinderProcess_setThreadPoolMaxThreadCount(uint32_t count);

// Serves the registered name from the calling thread; does not return in normal operation. If
// systemd passed the socket, ends the process with status 0 after 10 seconds without a connected
// client. Returns at once if nothing is registered or epoll cannot be set up, and after about
// 2 seconds in which every wait for events failed.
void ABinderProcess_joinThreadPool();
