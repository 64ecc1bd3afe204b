// Asking again and again, the answer redrawn in place on a terminal.
#pragma once

#include <functional>
#include <string>

namespace disk_info::client {

// Draws what `frame` returns every `seconds` until SIGINT or SIGTERM ends the process with status
// 0, also in the middle of a call that does not return. The cursor is hidden meanwhile and comes
// back then. Where standard output is no terminal, frames follow each other with an empty line
// between. Returns only when the output cannot be written.
void watch(unsigned seconds, const std::function<std::string()>& frame);

}  // namespace disk_info::client
