// Repeated output; on a terminal, on its alternate screen and cropped to its size.
#pragma once

#include <functional>

#include "output.h"

namespace disk_info::cli {

// Calls `print` every `seconds`, in a child process whose standard output and standard error form
// one frame; its argument is the size of the terminal. Returns only if the frame cannot be written.
// SIGINT and SIGTERM end the process with status 0 at any time, also while `print` blocks. On a
// terminal, SIGWINCH draws the last frame again. Elsewhere an empty line separates the frames.
void Watch(unsigned seconds, const std::function<void(const Size&)>& print);

}  // namespace disk_info::cli
