// Repeats a system call that a signal interrupted before it did anything. Not for a command to a
// disk, which may have been carried out all the same.
#pragma once

#include <cerrno>

namespace base {

inline bool Failed(const char* result) {
    return result == nullptr;
}
inline bool Failed(long result) {
    return result < 0;
}

// The result of `call`, made again on EINTR up to five times in all; the last result is then a
// failure like any other, so that no storm of signals holds up the one thread.
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
