// The inside of a parcel, for the files that send and receive its bytes.
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
    // Become an empty parcel, or one that holds a copy of `bytes`, positioned at the start. The
    // memory stays, so that a parcel can serve one message after the other.
    void Clear() { Assign({}); }
    void Assign(std::span<const uint8_t> bytes) {
        data.assign(bytes.begin(), bytes.end());
        position = 0;
    }

    // Room for `size` bytes at the position, which moves past them; null where the parcel would
    // pass its limit.
    uint8_t* Claim(size_t size);
    // The next `size` bytes, which the position then passes; null where fewer are left.
    const uint8_t* Consume(size_t size) const;

    std::vector<uint8_t> data;
    // Reading moves it, and readers hold parcels const. Never past data.size().
    mutable size_t position = 0;
};
