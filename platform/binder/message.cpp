#include "message.h"

#include <base/retry.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

namespace binder {

ReceiveResult Receive(int fd, uint32_t magic, Message* message) {
    // With MSG_TRUNC the result is the full length of a message, even if it was truncated.
    const ssize_t size =
        base::RetryOnInterrupt([&] { return recv(fd, message, sizeof(*message), MSG_TRUNC); });
    if (size < 0) {
        const bool try_again = errno == EAGAIN || errno == EINTR;
        return try_again ? ReceiveResult::kNothing : ReceiveResult::kClosed;
    }
    // An empty message, which is malformed, cannot be distinguished from the end of the connection.
    if (size == 0) return ReceiveResult::kClosed;
    const auto bytes = static_cast<size_t>(size);
    const MessageHeader& header = message->header;
    const bool valid = bytes >= sizeof(header) && bytes <= sizeof(*message) &&
                       header.magic == magic && header.size == bytes - sizeof(header);
    return valid ? ReceiveResult::kMessage : ReceiveResult::kMalformed;
}

int Send(int fd, uint32_t magic, int32_t word, std::span<const uint8_t> data, Message* message) {
    message->header = {magic, word, static_cast<uint32_t>(data.size())};
    if (!data.empty()) std::memcpy(message->payload.data(), data.data(), data.size());
    const size_t size = sizeof(message->header) + data.size();
    const ssize_t sent =
        base::RetryOnInterrupt([&] { return send(fd, message, size, MSG_NOSIGNAL); });
    return sent < 0 ? errno : 0;
}

bool ReplyWasTaken(int fd) {
    int unread = 0;
    // The kernel still counts one byte of a received message while it wakes up the sender.
    return ioctl(fd, SIOCOUTQ, &unread) == 0 && unread <= 1;
}

}  // namespace binder
