// What travels between two processes: one SOCK_SEQPACKET datagram a transaction and one a reply,
// each a fixed header of three words and a parcel's bytes, all in host byte order.
//
// Descriptors are never passed: a receive names no room for them, so that the kernel drops any
// that a peer attaches, and a send is one that cannot carry any. A send to a peer that left is an
// error, never a signal.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "parcel.h"

namespace binder {

// A request cannot be taken for a reply, nor the other way round.
inline constexpr uint32_t kRequestMagic = 0x51726942;
inline constexpr uint32_t kReplyMagic = 0x50726942;

struct MessageHeader {
    uint32_t magic;
    int32_t word;   // of a request: the transaction code; of a reply: its status
    uint32_t size;  // bytes of parcel data behind the header
};
static_assert(sizeof(MessageHeader) == 12);

// Where one message is received. Not initialised: pages that no message ever reached cost nothing.
struct Message {
    std::span<const uint8_t> data() const { return {payload.data(), header.size}; }

    MessageHeader header;
    std::array<uint8_t, kMaxParcelBytes> payload;
};
static_assert(sizeof(Message) == sizeof(MessageHeader) + kMaxParcelBytes);

enum class ReceiveResult {
    kMessage,
    kNothing,    // none waits on a descriptor that does not block, or signals interrupted the wait
    kClosed,     // the peer is gone
    kMalformed,  // shorter or longer than its header tells, or no header of this kind
};

// Waits for one message unless `fd` does not block. Only kMessage makes `message` meaningful.
[[nodiscard]] ReceiveResult Receive(int fd, uint32_t magic, Message* message);

// Sends a header and the parcel's data, put together in `message`. 0, or the errno of the failed
// send.
[[nodiscard]] int Send(int fd, uint32_t magic, int32_t word, std::span<const uint8_t> data,
                       Message* message);

// Whether the peer has received all that was sent to it. Takes a connected socket.
[[nodiscard]] bool ReplyWasTaken(int fd);

}  // namespace binder
