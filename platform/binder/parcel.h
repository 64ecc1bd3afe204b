// The memory of a parcel, for the files that send and receive its bytes.
#pragma once

#include <binder/parcel.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace binder {

inline constexpr size_t kMaxParcelBytes = size_t{64} * 1024;

}  // namespace binder

struct AParcel {
    // Replace the content by nothing or by a copy of `bytes`, with the position at the start. The
    // memory is kept: a server reuses its parcels for all messages.
    void Clear() { Assign({}); }
    void Assign(std::span<const uint8_t> bytes) {
        data.assign(bytes.begin(), bytes.end());
        position = 0;
    }

    // Returns room for `size` bytes at the position and moves the position past it. Null, without
    // any change, if the parcel would exceed its limit.
    uint8_t* Claim(size_t size);
    // Returns the next `size` bytes and moves the position past them. Null, without any change, if
    // fewer are left.
    const uint8_t* Consume(size_t size) const;

    std::vector<uint8_t> data;
    // Mutable, because reading a const parcel moves it. At most data.size().
    mutable size_t position = 0;
};
