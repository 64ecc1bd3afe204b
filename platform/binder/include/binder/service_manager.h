// Names. The instance "D/default" is served at the socket path /run/binder/D/default.
#pragma once

#include <binder/ibinder.h>

// Serves `binder` under `instance` from ABinderProcess_joinThreadPool on, and keeps a strong
// reference to it. Takes over the listening socket that systemd handed to this process
// (LISTEN_PID, LISTEN_FDS), or binds the path itself when there is none.
// STATUS_ALREADY_EXISTS: a living process serves the path; the leftover of a dead one is replaced.
// Other non-zero codes: the name cannot be a path, or the negative errno of the failing call.
[[nodiscard]] binder_status_t AServiceManager_registerLazyService(AIBinder* binder,
                                                                  const char* instance);

// A remote binder for the instance, connected, or null, in which case errno tells why: ENOENT or
// ECONNREFUSED nobody serves the name, EACCES no rights to its socket.
[[nodiscard]] AIBinder* AServiceManager_checkService(const char* instance);
