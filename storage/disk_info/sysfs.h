// Helpers for sysfs: first line of an attribute file, start of a number in its text, and operations
// on paths. None of them logs.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace orvane::tavisk::disk_info {

inline constexpr char kWhiteSpace[] = " \t\n\v\f\r";

// First line of the file, without the newline, untrimmed. A line above 64 KiB gives "". If a read
// fails, the line ends with the bytes read before: some drivers fail the read of an attribute that
// the device does not implement. Empty optional: the file cannot be opened.
[[nodiscard]] std::optional<std::string> ReadFirstLine(const std::string& path);

// Where a number in `text` starts: after leading white space. The base is 16 if the number begins
// with 0x or 0X, otherwise 10: a leading 0 does not mean octal.
struct NumberStart {
    const char* digits;  // points into `text`
    int base;
};
[[nodiscard]] NumberStart FindNumber(const std::string& text);

// Absolute path without symbolic links, "." and "..". Empty optional: a component is missing or
// cannot be resolved; errno holds the reason.
[[nodiscard]] std::optional<std::string> CanonicalPath(const char* path);

// Text after the last slash: all of `path` if it has no slash, "" if it ends in one. Accesses no
// file, like ParentPath.
[[nodiscard]] std::string LastComponent(std::string_view path);

// `path` without its last component and the slashes before it. The parent of "/" is "/". "": `path`
// has no slash.
[[nodiscard]] std::string ParentPath(std::string_view path);

}  // namespace orvane::tavisk::disk_info
