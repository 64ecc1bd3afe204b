// The serving side of a process.
#pragma once

#include <cstdint>

// Upper bound for the threads that serve beside the one that joins. This library serves from the
// joining thread alone, so any bound is kept. False: the value was refused.
bool ABinderProcess_setThreadPoolMaxThreadCount(uint32_t count);

// Serves all registered names from the calling thread and does not return in normal operation. A
// process that was handed its socket leaves from here, with status 0, once no client has been
// connected for 10 seconds. Returns at once when nothing is registered, or when the kernel
// refuses the means to wait for clients.
void ABinderProcess_joinThreadPool();
