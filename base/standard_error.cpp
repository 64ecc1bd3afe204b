#include <base/retry.h>
#include <base/standard_error.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <string>

namespace base {
namespace {

std::atomic<bool> line_open{false};  // only the beginning of the last record was written

void Write(std::string_view record) {
    const auto send_record = [&] {
        return send(STDERR_FILENO, record.data(), record.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    };
    if (RetryOnInterrupt(send_record) >= 0 || errno != ENOTSOCK) return;

    pollfd room{STDERR_FILENO, POLLOUT, 0};
    if (RetryOnInterrupt([&] { return poll(&room, 1, 0); }) != 1 || room.revents != POLLOUT) return;
    std::string line = line_open ? "\n" : "";
    line += record;
    const ssize_t written =
        RetryOnInterrupt([&] { return write(STDERR_FILENO, line.data(), line.size()); });
    if (written > 0) line_open = static_cast<size_t>(written) < line.size();
}

}  // namespace

void WriteToStandardError(std::string_view record) {
    const int error = errno;
    Write(record);
    errno = error;
}

}  // namespace base
