// The two steps along a path's text that the readers of sysfs need. They look at the text only and
// give what a file-system library's filename and parent operations would.
#pragma once

#include <string>
#include <string_view>

namespace orvane::tavisk::disk_info {

// What follows the last slash; the whole text when there is none, "" after a final slash.
inline std::string LastComponent(std::string_view path) {
    return std::string(path.substr(path.rfind('/') + 1));
}

// `path` without its last component and the slashes before it. The parent of "/" is "/"; "" when
// there is no slash at all.
inline std::string ParentPath(std::string_view path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string_view::npos) return "";
    const size_t end = path.substr(0, slash).find_last_not_of('/');
    return end == std::string_view::npos ? "/" : std::string(path.substr(0, end + 1));
}

}  // namespace orvane::tavisk::disk_info
