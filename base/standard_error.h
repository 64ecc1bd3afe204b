// Standard error as a place for records, which never makes its writer wait.
#pragma once

#include <string_view>

namespace base {

// Writes `record`, one line with its end, of at most kLargestRecord bytes, in one piece. A record
// that standard error does not take at once is dropped, as is one whose reader has gone; a terminal
// that takes the beginning of it gets a line end before the next one. Leaves errno as it was.
//
// A socket is sent to without waiting. Everything else is written to when it has room; where other
// processes write to the same pipe or terminal, that room can be gone by then, so it has to be
// non-blocking for the promise to be strict.
void WriteToStandardError(std::string_view record);

}  // namespace base
