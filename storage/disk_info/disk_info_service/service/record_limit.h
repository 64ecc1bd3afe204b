// Limits the records that clients can make the daemon write, so that no client can displace other
// records from the system log. Only counts: the caller writes the record or drops it. Not locked:
// one thread.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>

namespace morsk::com::quendar::tavisk::disk_info {

class RecordLimit {
  public:
    static constexpr size_t kMaxRecords = 25;  // in any 30 seconds; includes the WARNING

    RecordLimit() { times_.fill(-kInterval); }

    // Whether a record may be written at `now`, a monotonic time. After a refusal, records are
    // refused until 30 seconds have passed since the last one written; a WARNING with the number of
    // suppressed records precedes the next one.
    [[nodiscard]] bool Admit(std::chrono::nanoseconds now);

    // True while the WARNING is logged. It is counted already, so the caller must not pass it to
    // Admit.
    bool IsReporting() const { return reporting_; }

    // Logs the WARNING if records were suppressed since the last one. For the end of the process.
    void ReportSuppressed();

  private:
    static constexpr std::chrono::seconds kInterval{30};

    void Count(std::chrono::nanoseconds now);

    // Times of the latest records; the oldest is at `next_`. One place is reserved for the WARNING.
    std::array<std::chrono::nanoseconds, kMaxRecords - 1> times_;
    size_t next_ = 0;
    uint64_t suppressed_ = 0;
    bool reporting_ = false;
};

}  // namespace morsk::com::quendar::tavisk::disk_info
