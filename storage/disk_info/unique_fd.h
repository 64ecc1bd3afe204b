// The one owner of a file descriptor: closes it when it goes out of scope.
#pragma once

#include <unistd.h>

namespace orvane::tavisk::disk_info {

class UniqueFd {
  public:
    // Takes over `fd`; a negative one, a failed open(2), is owned as "none".
    explicit UniqueFd(int fd) : fd_(fd) {}
    ~UniqueFd() {
        if (valid()) (void)close(fd_);  // Nothing was written: there is no error to act on.
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    bool valid() const { return fd_ >= 0; }
    int get() const { return fd_; }

  private:
    int fd_;
};

}  // namespace orvane::tavisk::disk_info
