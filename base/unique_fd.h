// Owns one file descriptor and closes it on destruction. A negative number, such as the result of a
// failed open(2), means none. Closing preserves errno, so that the error of an earlier call can
// still be reported.
#pragma once

#include <unistd.h>

#include <cerrno>

namespace base {

class UniqueFd {
  public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : fd_(other.Release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        if (this != &other) {
            Reset();
            fd_ = other.Release();
        }
        return *this;
    }
    ~UniqueFd() { Reset(); }

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }

    void Reset() {
        if (fd_ < 0) return;
        const int saved_errno = errno;
        (void)close(Release());  // Linux frees the number even if close fails.
        errno = saved_errno;
    }

  private:
    int Release() {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }

    int fd_ = -1;
};

}  // namespace base
