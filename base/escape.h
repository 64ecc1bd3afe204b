// Escapes foreign text, such as a name that a client sent or the target of a link, for a log record
// or a terminal: it cannot end the record, forge another one or control the terminal. Control
// characters are C0, DEL and C1. C1 is recognised as UTF-8 (C2 80 to C2 9F) and as a byte 0x80 to
// 0x9f outside a UTF-8 sequence. All other bytes except backslashes stay unchanged, whether they
// are valid UTF-8 or not.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace base {

// `text` with \n for a newline, \x and two hexadecimal digits for each byte of another control
// character, and \\ for a backslash. Different texts give different results.
[[nodiscard]] std::string Escaped(std::string_view text);

// Like Escaped, but leaves backslashes unchanged: for a message with parts that are escaped
// already.
[[nodiscard]] std::string EscapedControls(std::string_view text);

inline constexpr size_t kLargestRecord = 1024;  // bytes, including prefix and line end

// Shortens an escaped `text` of more than `size` bytes to at most `size`, which is 3 or more. It is
// cut between two characters, never inside an escape, and then ends in "...".
void CutTo(size_t size, std::string* text);

}  // namespace base
