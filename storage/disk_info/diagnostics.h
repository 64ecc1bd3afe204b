// What the NVMe and the filesystem classes say of failures: one line each on standard error, never
// in the log. A line is at most 1 KiB and is never waited for: base/standard_error.h.
#pragma once

#include <initializer_list>
#include <string_view>

namespace orvane::tavisk::disk_info {

// Prints the pieces, one after the other, and a line end. Foreign text among them is escaped
// already; what passes 1 KiB is cut and ends in "...".
void PrintDiagnostic(std::initializer_list<std::string_view> pieces);

// Prints what perror(3) prints: `prefix`, ": " and the text of errno, which stays as it was.
void PrintError(const char* prefix);

// From now on `admit` is called before each message, which is dropped when it returns false. Until
// then every message is printed: the limit is the program's, not the library's.
void LimitDiagnostics(bool (*admit)());

}  // namespace orvane::tavisk::disk_info
