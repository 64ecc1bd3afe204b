// A limit on what clients can make the daemon write: so many records in any 30 seconds, so that no
// client drives the other records out of the system log. Only counts; the logger and the storage
// library's diagnostics call it before they write. For one thread.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>

namespace morsk::com::quendar::tavisk::disk_info {

class RecordLimit {
  public:
    static constexpr size_t kMost = 25;  // the last one is kept for the WARNING at the end

    RecordLimit() { times_.fill(-kInterval); }

    // Whether a record may be written at `now`, the time since any point before. After a refusal it
    // takes 30 seconds without a record until one is admitted again, and before that one a WARNING
    // is logged that says how many were suppressed.
    [[nodiscard]] bool Admit(std::chrono::nanoseconds now);

    // Whether the record at hand is that WARNING, which is counted already.
    bool is_reporting() const { return reporting_; }

    // Logs the WARNING that is due, for the end of the process.
    void ReportSuppressed();

  private:
    static constexpr std::chrono::seconds kInterval{30};

    void Count(std::chrono::nanoseconds now);

    // When the last ones were written; the oldest is at `next_`.
    std::array<std::chrono::nanoseconds, kMost - 1> times_;
    size_t next_ = 0;
    uint64_t suppressed_ = 0;
    bool reporting_ = false;
};

}  // namespace morsk::com::quendar::tavisk::disk_info
