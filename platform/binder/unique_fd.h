// Owner of one file descriptor: closes it when it goes out of scope and leaves errno as it was, so
// that a failure can be returned through it.
#pragma once

#include <unistd.h>

#include <cerrno>

namespace binder {

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
        (void)close(Release());  // Linux frees the number whatever close returns.
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

}  // namespace binder
