// A time limit for the process: at the limit it prints prepared texts and exits. No call has to
// return for that, so this works with any IPC library.
#pragma once

#include <string>

namespace disk_info::cli {

// Set from the constructor to the destructor. At most one exists.
class TimeLimit {
  public:
    // At the limit, `out` goes to standard output and `err` to standard error. The exit status is
    // `status`, or `status_unwritten` if `out` could not be written.
    TimeLimit(unsigned seconds, std::string out, std::string err, int status, int status_unwritten);
    TimeLimit(const TimeLimit&) = delete;
    TimeLimit& operator=(const TimeLimit&) = delete;
    ~TimeLimit();
};

}  // namespace disk_info::cli
