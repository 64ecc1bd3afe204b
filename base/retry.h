// Retries a system call on EINTR. Must not be used for a command to a disk: the disk may have
// executed a command whose system call was interrupted.
#pragma once

#include <cerrno>

namespace base {

inline bool Failed(const char* result) {
    return result == nullptr;
}
inline bool Failed(long result) {
    return result < 0;
}

// Result of the last of up to five calls. If the fifth is interrupted too, the result is a failure
// with errno EINTR: frequent signals must not block the daemon's only thread.
template <typename Call>
auto RetryOnInterrupt(Call&& call) {
    constexpr int kAttempts = 5;
    auto result = call();
    for (int attempt = 1; attempt < kAttempts && Failed(result) && errno == EINTR; ++attempt) {
        result = call();
    }
    return result;
}

}  // namespace base
