// System calls that a signal can interrupt before they have done anything, done to their end. Not
// for an NVMe disk: opening it and what it is asked are tried once, whatever becomes of them.
#pragma once

#include <cerrno>

namespace orvane::tavisk::disk_info {

inline bool Failed(const char* result) {
    return result == nullptr;
}
inline bool Failed(long result) {
    return result < 0;
}

// What `call` returns, which is called until it succeeds or fails with another errno than EINTR.
template <typename Call>
auto Uninterrupted(Call&& call) {
    for (;;) {
        const auto result = call();
        if (!Failed(result) || errno != EINTR) return result;
    }
}

}  // namespace orvane::tavisk::disk_info
