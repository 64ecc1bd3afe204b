// Writes records to standard error; blocks only in the case described below.
#pragma once

#include <string_view>

namespace base {

// Writes `record`, one line of at most kLargestRecord bytes including its line end, with one system
// call. Drops it if standard error cannot accept it at once, is closed or has no reader. If only
// the beginning was accepted, a line end precedes the next record. Preserves errno.
//
// A send to a socket never blocks. A write to any other file follows a poll for room: if another
// process writes to the same pipe or terminal in between, the write can block unless the file is
// non-blocking.
void WriteToStandardError(std::string_view record);

}  // namespace base
