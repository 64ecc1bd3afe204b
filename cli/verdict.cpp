#include "verdict.h"

#include <algorithm>
#include <optional>

#include "fields.h"

namespace disk_info::cli {

namespace {

using Test = bool (*)(double value, double limit);

bool Reaches(double value, double limit) {
    return value >= limit;
}
bool Exceeds(double value, double limit) {
    return value > limit;
}
bool Equals(double value, double limit) {
    return value == limit;
}
bool IsBelow(double value, double limit) {
    return value < limit;
}
// 100 % spare is never a finding, even with a threshold of 100 %.
bool IsDownTo(double value, double limit) {
    return value == limit && value < 100;
}
bool HasBit(double value, double bit) {
    return (static_cast<unsigned>(value) >> static_cast<unsigned>(bit) & 1) != 0;
}
bool HasBitFrom(double value, double bit) {
    return static_cast<unsigned>(value) >> static_cast<unsigned>(bit) != 0;
}

// Sources:
//   log   NVM Express Base, SMART / Health Information log: conditions that the standard calls
//         critical. Percentage used may exceed 100 without a failure, so it counts as wear.
//   ufs   JEDEC UFS, Health Descriptor: bPreEOLInfo, bDeviceLifeTimeEstA and B
//   own   chosen here, as is the severity of every row
// NVMe error log entries and UFS I/O errors are not assessed: both also count rejected requests.
constexpr struct Limit {
    const char* field;
    Test test;
    double limit;
    const char* limit_field;  // not null: this field holds the limit
    Verdict verdict;
} kLimits[] = {
    {"criticalWarning", HasBit, 0, nullptr, Verdict::kFailing},    // log: spare
    {"criticalWarning", HasBit, 1, nullptr, Verdict::kWatch},      // log: temperature
    {"criticalWarning", HasBit, 2, nullptr, Verdict::kFailing},    // log: reliability
    {"criticalWarning", HasBit, 3, nullptr, Verdict::kFailing},    // log: read-only
    {"criticalWarning", HasBit, 4, nullptr, Verdict::kFailing},    // log: memory backup
    {"criticalWarning", HasBit, 5, nullptr, Verdict::kWatch},      // log: memory region
    {"criticalWarning", HasBitFrom, 6, nullptr, Verdict::kWatch},  // own: reserved bits
    {"availableSpare", IsBelow, 0, "availableSpareThreshold", Verdict::kFailing},  // log
    {"availableSpare", IsDownTo, 0, "availableSpareThreshold", Verdict::kWatch},   // own
    {"percentageUsed", Reaches, 90, nullptr, Verdict::kWatch},                     // own
    {"numberOfMediaErrors", Exceeds, 0, nullptr, Verdict::kWatch},                 // own
    {"preEndOfLifeInfo", Equals, 2, nullptr, Verdict::kWatch},                     // ufs: warning
    {"preEndOfLifeInfo", Equals, 3, nullptr, Verdict::kFailing},                   // ufs: urgent
    {"deviceLifeTimeEstimationA", Reaches, 0x0A, nullptr, Verdict::kWatch},        // own: from 90 %
    {"deviceLifeTimeEstimationB", Reaches, 0x0A, nullptr, Verdict::kWatch},
};

// A row for one bit names only that bit, although the field's words list all that are set.
std::string ReasonFor(const Json& fields, const Limit& limit) {
    std::string reason = Label(limit.field) + ": ";
    reason += limit.test == HasBit ? kCriticalWarnings[static_cast<size_t>(limit.limit)].words
                                   : Words(fields, limit.field);
    if (limit.limit_field == nullptr) return reason;
    reason += limit.test == IsBelow ? ", below its threshold of " : ", at its threshold of ";
    return reason + Words(fields, limit.limit_field);
}

}  // namespace

Assessment Assess(const Json* health) {
    Assessment result;
    if (health == nullptr) {
        result.findings.push_back({"", Verdict::kUnknown, "the health data could not be read"});
        return result;
    }
    for (const Limit& limit : kLimits) {
        const std::optional<double> value = Reading(*health, limit.field);
        if (!value) continue;
        result.verdict = std::max(result.verdict, Verdict::kOk);
        const double bound = limit.limit_field != nullptr
                                 ? Reading(*health, limit.limit_field).value_or(0)
                                 : limit.limit;
        if (!limit.test(*value, bound)) continue;
        result.verdict = std::max(result.verdict, limit.verdict);
        result.findings.push_back({limit.field, limit.verdict, ReasonFor(*health, limit)});
    }
    if (result.findings.empty()) {
        result.findings.push_back({"", result.verdict,
                                   result.verdict == Verdict::kOk
                                       ? "all reported values are within limits"
                                       : "the disk reports no value that can be assessed"});
    }
    return result;
}

}  // namespace disk_info::cli
