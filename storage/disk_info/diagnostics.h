// Diagnostics of the NVMe and filesystem classes: one line per failure on standard error, never in
// the log. A line has at most 1 KiB; one that standard error does not accept at once is dropped
// (base/standard_error.h).
#pragma once

#include <initializer_list>
#include <string_view>

namespace orvane::tavisk::disk_info {

// Prints the concatenated pieces as one line, cut to 1 KiB. The caller escapes foreign text.
void PrintDiagnostic(std::initializer_list<std::string_view> pieces);

// Prints a line in the form of perror(3): `prefix`, ": " and the text of errno. Preserves errno.
void PrintError(const char* prefix);

// Installs a filter that is called before each diagnostic and drops it by returning false. Without
// a filter every diagnostic is printed.
void LimitDiagnostics(bool (*admit)());

}  // namespace orvane::tavisk::disk_info
