// The messages between two processes: a request and a reply are one SOCK_SEQPACKET message each, of
// a fixed header of three words and a parcel's bytes, all in host byte order.
//
// No descriptors are passed: the kernel drops those that a peer attaches, because a receive has no
// buffer for them. A send to a closed connection returns an error and raises no signal.
//
// Errors in platform/binder: a function that can fail for a system reason returns 0 or a positive
// errno value. If no caller needs the reason, it returns false, an empty optional or an empty
// descriptor instead. Code reads errno only directly after the call that set it.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "parcel.h"

namespace binder {

// Distinguish requests from replies.
inline constexpr uint32_t kRequestMagic = 0x51726942;
inline constexpr uint32_t kReplyMagic = 0x50726942;

struct MessageHeader {
    uint32_t magic;
    int32_t word;   // in a request the transaction code, in a reply the status
    uint32_t size;  // bytes of parcel data after the header
};
static_assert(sizeof(MessageHeader) == 12);

// Buffer for one message. Not initialised, so that pages that no message reaches use no memory.
struct Message {
    std::span<const uint8_t> data() const { return {payload.data(), header.size}; }

    MessageHeader header;
    std::array<uint8_t, kMaxParcelBytes> payload;
};
static_assert(sizeof(Message) == sizeof(MessageHeader) + kMaxParcelBytes);

enum class ReceiveResult {
    kMessage,
    kNothing,    // a non-blocking descriptor has no message, or signals interrupted the wait
    kClosed,     // the peer closed the connection, or it failed
    kMalformed,  // the size does not match the header, or the header has another magic
};

// Receives one message; waits for it if `fd` is blocking. `message` is valid after kMessage only.
[[nodiscard]] ReceiveResult Receive(int fd, uint32_t magic, Message* message);

// Sends a header and at most kMaxParcelBytes of data, which it first copies into `message`. 0 or a
// positive errno value.
[[nodiscard]] int Send(int fd, uint32_t magic, int32_t word, std::span<const uint8_t> data,
                       Message* message);

// Whether the peer has received everything that was sent to it; false on failure. `fd` is a
// connected socket.
[[nodiscard]] bool ReplyWasTaken(int fd);

}  // namespace binder
