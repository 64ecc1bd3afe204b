#include <base/retry.h>
#include <base/unique_fd.h>
#include <disk_info/sysfs.h>
#include <fcntl.h>
#include <unistd.h>

#include <string_view>

namespace orvane::tavisk::disk_info {
namespace {

// The kernel's attributes end after a page. What is longer is no attribute, and is not held whole;
// nor is it cut, since the beginning of a number is another number.
constexpr size_t kLongestLine = size_t{64} * 1024;

}  // namespace

std::optional<std::string> ReadFirstLine(const std::string& path) {
    const base::UniqueFd fd(
        base::RetryOnInterrupt([&] { return open(path.c_str(), O_RDONLY | O_CLOEXEC); }));
    if (!fd) return std::nullopt;

    std::string line;
    char buffer[256];
    while (line.size() <= kLongestLine) {
        const ssize_t count =
            base::RetryOnInterrupt([&] { return read(fd.get(), buffer, sizeof(buffer)); });
        if (count <= 0) break;
        const std::string_view piece(buffer, static_cast<size_t>(count));
        const size_t newline = piece.find('\n');
        line += piece.substr(0, newline);
        if (newline != std::string_view::npos) break;
    }
    if (line.size() > kLongestLine) line.clear();
    return line;
}

std::string LastComponent(std::string_view path) {
    return std::string(path.substr(path.rfind('/') + 1));
}

std::string ParentPath(std::string_view path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string_view::npos) return "";
    const size_t end = path.substr(0, slash).find_last_not_of('/');
    return end == std::string_view::npos ? "/" : std::string(path.substr(0, end + 1));
}

}  // namespace orvane::tavisk::disk_info
