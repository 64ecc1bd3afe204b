// Names. The instance "D/default" is served at the socket path /run/binder/D/default.
#pragma once

#include <binder/ibinder.h>

// Serves `binder` under `instance` from ABinderProcess_joinThreadPool on, and keeps a strong
// reference to it. Takes over the listening socket that systemd handed to this process
// (LISTEN_PID, LISTEN_FDS), or binds the path itself when there is none. A path of its own gets
// mode 0660: whoever is to ask runs as the serving process's user or in its group.
//
// STATUS_ALREADY_EXISTS: a living process serves the path; the leftover of a dead one is replaced,
// anything but a socket is left alone (-ENOTSOCK). STATUS_BAD_VALUE: the binder is remote, the name
// cannot be a path (an empty component, or one that starts with a dot, or ".." anywhere), or what
// was handed over is not one listening SOCK_SEQPACKET socket. -EBUSY: a process serves one name
// and this one has its own already. Others: the negative errno of the failing call.
[[nodiscard]] binder_status_t AServiceManager_registerLazyService(AIBinder* binder,
                                                                  const char* instance);

// A remote binder for the instance, connected, or null, in which case errno tells why: ENOENT or
// ECONNREFUSED nobody serves the name, EACCES no rights to its socket, EINVAL or ENAMETOOLONG the
// name cannot be a path. Waits while the queue of a living service is full.
[[nodiscard]] AIBinder* AServiceManager_checkService(const char* instance);
