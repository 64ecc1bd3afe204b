// The daemon's descriptors 0, 1 and 2, which it inherits from the process that started it.
#pragma once

namespace morsk::com::quendar::tavisk::disk_info {

// Opens /dev/null for each of the three that is closed, so that no connection or disk gets its
// number, and makes standard error non-blocking where it is a pipe or a terminal: through an open
// file description of its own, since others may share the one it was given. Where the kernel
// refuses that, as for another user's pipe, standard error stays, and base/standard_error.h says
// what holds then. A file never waits; a socket is sent to without waiting. A reader that goes
// does not end the process: SIGPIPE is ignored.
//
// Called once, before anything else is opened and while there is one thread.
void PrepareStandardStreams();

}  // namespace morsk::com::quendar::tavisk::disk_info
