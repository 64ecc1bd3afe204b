// Reading of the one-line text files of sysfs.
#pragma once

#include <optional>
#include <string>

namespace orvane::tavisk::disk_info {

// The bytes before the first newline, or up to the end of the file; nothing is trimmed. "" where
// these are more than 64 KiB, which no attribute and no reply holds. Empty optional: the file
// cannot be opened. A read that fails ends the line where it stands: healthy devices refuse single
// reads of attributes they do not implement. Logs nothing.
[[nodiscard]] std::optional<std::string> ReadFirstLine(const std::string& path);

}  // namespace orvane::tavisk::disk_info
