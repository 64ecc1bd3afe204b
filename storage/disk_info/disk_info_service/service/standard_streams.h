// Descriptors 0, 1 and 2 of the daemon, which it inherits from the process that started it.
#pragma once

namespace morsk::com::quendar::tavisk::disk_info {

// Opens /dev/null on each of the three that is closed, so that no connection or disk gets its
// number. Ignores SIGPIPE, so that a closed reader does not end the process. Makes standard error
// non-blocking if it is a pipe or a terminal, on an open file description of its own because other
// processes may share the inherited one. If the kernel refuses, as for a pipe of another user,
// standard error is unchanged; base/standard_error.h describes the consequences. Files never block,
// and sockets are written with MSG_DONTWAIT.
//
// Call once, with one thread, before any other descriptor is opened.
void PrepareStandardStreams();

}  // namespace morsk::com::quendar::tavisk::disk_info
