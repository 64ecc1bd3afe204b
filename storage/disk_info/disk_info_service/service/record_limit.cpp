#include <logging/logging.h>
#include <service/record_limit.h>

#include <utility>

namespace morsk::com::quendar::tavisk::disk_info {

bool RecordLimit::Admit(std::chrono::nanoseconds now) {
    // After a refusal, the interval is measured from the newest record, not from the oldest one, so
    // that a flood causes only one WARNING.
    const size_t decisive = suppressed_ == 0 ? next_ : (next_ + times_.size() - 1) % times_.size();
    if (now - times_[decisive] < kInterval) {
        ++suppressed_;
        return false;
    }
    if (suppressed_ > 0) {
        Count(now);
        ReportSuppressed();
    }
    Count(now);
    return true;
}

void RecordLimit::ReportSuppressed() {
    const uint64_t suppressed = std::exchange(suppressed_, 0);
    if (suppressed == 0) return;
    reporting_ = true;
    LOG(WARNING) << "Suppressed " << suppressed << " records: the limit is " << kMaxRecords
                 << " in " << kInterval.count() << " seconds";
    reporting_ = false;
}

void RecordLimit::Count(std::chrono::nanoseconds now) {
    times_[next_] = now;
    next_ = (next_ + 1) % times_.size();
}

}  // namespace morsk::com::quendar::tavisk::disk_info
