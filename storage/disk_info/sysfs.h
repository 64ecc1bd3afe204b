// Reading of sysfs: the first line of an attribute file, and steps along a path's text.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace orvane::tavisk::disk_info {

// The bytes before the first newline, or up to the end of the file; nothing is trimmed. "" where
// these are more than 64 KiB, which no attribute and no reply holds. Empty optional: the file
// cannot be opened. A read that fails ends the line where it stands: healthy devices refuse single
// reads of attributes they do not implement. Logs nothing.
[[nodiscard]] std::optional<std::string> ReadFirstLine(const std::string& path);

// The text after the last slash; the whole text if there is no slash, "" after a final slash. Like
// ParentPath it works on the text and accesses no file.
[[nodiscard]] std::string LastComponent(std::string_view path);

// `path` without its last component and the slashes before it. The parent of "/" is "/"; "" if
// there is no slash at all.
[[nodiscard]] std::string ParentPath(std::string_view path);

}  // namespace orvane::tavisk::disk_info
