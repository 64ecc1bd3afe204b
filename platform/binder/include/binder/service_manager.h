// Registration and lookup of services by instance name. The instance "D/default" is served at the
// socket path /run/binder/D/default. An instance name is one or more components separated by "/";
// none is empty or starts with a dot, and ".." occurs nowhere.
#pragma once

#include <binder/ibinder.h>

// Registers `binder` under `instance`, to be served by ABinderProcess_joinThreadPool, and keeps a
// strong reference to it. Takes over the listening socket that systemd passed (LISTEN_PID,
// LISTEN_FDS). Without one, makes missing directories (mode 0711) and binds the path (mode 0660:
// for the user and the group of this process), replacing the socket of a dead process.
//
// STATUS_OK, or a failure that registers nothing:
// STATUS_UNEXPECTED_NULL  `binder` is null.
// STATUS_BAD_VALUE        The binder is remote, the name is invalid, or systemd passed anything but
//                         one listening SOCK_SEQPACKET socket.
// STATUS_ALREADY_EXISTS   A living process serves the path.
// -ENAMETOOLONG           The path does not fit into a socket address.
// -ENOTSOCK               The path is not a socket. It is left unchanged.
// -EBUSY                  This process has registered a name already; it can serve one.
// Otherwise the negative errno value of the failed system call.
[[nodiscard]] binder_status_t AServiceManager_registerLazyService(AIBinder* binder,
                                                                  const char* instance);

// A remote binder, connected to the service, with one reference for the caller. Null on failure,
// with errno set: ENOENT or ECONNREFUSED if no process serves the name, EACCES without permission
// for its socket, EINVAL for an invalid name, ENAMETOOLONG, or the error of the failed system call.
// Waits without a time limit while the service's queue of connections is full.
[[nodiscard]] AIBinder* AServiceManager_checkService(const char* instance);
