#include "message.h"

#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

namespace binder {

ReceiveResult Receive(int fd, uint32_t magic, Message* message) {
    ssize_t size = 0;
    do {
        // With MSG_TRUNC the result is the datagram's own length, even where it was cut.
        size = recv(fd, message, sizeof *message, MSG_TRUNC);
    } while (size < 0 && errno == EINTR);
    if (size < 0) return errno == EAGAIN ? ReceiveResult::kNothing : ReceiveResult::kClosed;
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
    std::ranges::copy(data, message->payload.begin());
    const size_t size = sizeof message->header + data.size();
    ssize_t sent = 0;
    do {
        sent = send(fd, message, size, MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    return sent < 0 ? errno : 0;
}

bool ReplyWasTaken(int fd) {
    int unread = 0;
    // One byte still counts while the kernel wakes up the sender of a message that was received.
    return ioctl(fd, SIOCOUTQ, &unread) == 0 && unread <= 1;
}

}  // namespace binder
