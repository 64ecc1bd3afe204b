// Repeated output, redrawn in place on a terminal.
#pragma once

#include <functional>
#include <string>

namespace disk_info::cli {

// Prints the text that `frame` returns, every `seconds`; returns only if the output cannot be
// written. SIGINT and SIGTERM end the process with status 0 at any time, also while `frame` blocks.
// On a terminal the cursor is hidden, and shown again at the end. Elsewhere an empty line separates
// the frames.
void Watch(unsigned seconds, const std::function<std::string()>& frame);

}  // namespace disk_info::cli
