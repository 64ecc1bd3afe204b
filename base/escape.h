// Foreign text in a record of the log or on a terminal: a name that a client sent or a link's
// target must not end the record, begin another one or drive the terminal. Control characters are
// C0, DEL and C1; the last as UTF-8 (C2 80 to C2 9F) and as a byte 0x80 to 0x9f that belongs to no
// UTF-8 sequence. Every other byte stays as it is, valid UTF-8 or not.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace base {

// `text` with \n for a newline, \x and two digits for each byte of the other control characters,
// and \\ for a backslash. Different texts give different results.
[[nodiscard]] std::string Escaped(std::string_view text);

// The same without the backslashes: for a whole message, of which parts may be escaped already.
[[nodiscard]] std::string EscapedControls(std::string_view text);

inline constexpr size_t kLargestRecord = 1024;  // bytes, prefix and line end included

// Cuts an escaped `text` that is longer than `size`, which is 3 or more, to at most that: between
// two characters and never inside an escape. It then ends in "...".
void CutTo(size_t size, std::string* text);

}  // namespace base
