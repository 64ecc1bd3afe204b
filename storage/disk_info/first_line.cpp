#include <base/retry.h>
#include <disk_info/first_line.h>
#include <disk_info/unique_fd.h>
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
    const UniqueFd fd(
        base::RetryOnInterrupt([&] { return open(path.c_str(), O_RDONLY | O_CLOEXEC); }));
    if (!fd.valid()) return std::nullopt;

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

}  // namespace orvane::tavisk::disk_info
