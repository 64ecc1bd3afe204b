#include <base/retry.h>
#include <base/unique_fd.h>
#include <disk_info/sysfs.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <string_view>

namespace orvane::tavisk::disk_info {
namespace {

// Attributes of the kernel have at most one page. A longer line is discarded rather than cut: the
// first digits of a number are another number.
constexpr size_t kLongestLine = size_t{64} * 1024;

}  // namespace

std::optional<std::string> ReadFirstLine(const std::string& path) {
    const base::UniqueFd fd(
        base::RetryOnInterrupt([&] { return open(path.c_str(), O_RDONLY | O_CLOEXEC); }));
    if (!fd) return std::nullopt;

    std::string line;
    char buffer[256] = {};
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

NumberStart FindNumber(const std::string& text) {
    const char* const digits =
        text.c_str() + std::min(text.find_first_not_of(kWhiteSpace), text.size());
    const bool hexadecimal = digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X');
    return {digits, hexadecimal ? 16 : 10};
}

std::optional<std::string> CanonicalPath(const char* path) {
    static_assert(PATH_MAX == 4096);
    char canonical[PATH_MAX] = {};
    if (base::RetryOnInterrupt([&] { return realpath(path, canonical); }) == nullptr) {
        return std::nullopt;
    }
    return canonical;
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
