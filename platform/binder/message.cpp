#include "message.h"

#include <base/retry.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

namespace binder {

ReceiveResult Receive(int fd, uint32_t magic, Message* message) {
    // With MSG_TRUNC the result is the datagram's own length, even where it was cut.
    const ssize_t size =
        base::RetryOnInterrupt([&] { return recv(fd, message, sizeof *message, MSG_TRUNC); });
    if (size < 0) {
        const bool may_come = errno == EAGAIN || errno == EINTR;
        return may_come ? ReceiveResult::kNothing : ReceiveResult::kClosed;
    }
    // An empty datagram looks the same as the end, and is no better.
    if (size == 0) return ReceiveResult::kClosed;
    if (size_t(size) < sizeof message->header || size_t(size) > sizeof *message ||
        message->header.magic != magic ||
        message->header.size != size_t(size) - sizeof message->header) {
        return ReceiveResult::kMalformed;
    }
    return ReceiveResult::kMessage;
}

int Send(int fd, uint32_t magic, int32_t word, std::span<const uint8_t> data, Message* message) {
    message->header = {magic, word, uint32_t(data.size())};
    if (!data.empty()) std::memcpy(message->payload.data(), data.data(), data.size());
    const size_t size = sizeof message->header + data.size();
    const ssize_t sent =
        base::RetryOnInterrupt([&] { return send(fd, message, size, MSG_NOSIGNAL); });
    return sent < 0 ? errno : 0;
}

bool ReplyWasTaken(int fd) {
    int unread = 0;
    // One byte still counts while the kernel wakes up the sender of a message that was received.
    return ioctl(fd, SIOCOUTQ, &unread) == 0 && unread <= 1;
}

}  // namespace binder
