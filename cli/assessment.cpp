#include "assessment.h"

#include <algorithm>
#include <optional>

#include "explanation.h"

namespace disk_info::client {

namespace {

using Test = bool (*)(double value, double limit);

bool reaches(double value, double limit) {
    return value >= limit;
}
bool exceeds(double value, double limit) {
    return value > limit;
}
bool is(double value, double limit) {
    return value == limit;
}
bool isBelow(double value, double limit) {
    return value < limit;
}
// A whole spare is no reason to worry, whatever the threshold.
bool isDownTo(double value, double limit) {
    return value == limit && value < 100;
}
bool hasBit(double value, double bit) {
    return (static_cast<unsigned>(value) >> static_cast<unsigned>(bit) & 1) != 0;
}
bool hasBitFrom(double value, double bit) {
    return static_cast<unsigned>(value) >> static_cast<unsigned>(bit) != 0;
}

// The limits, all of them. Sources:
//   log   NVM Express Base, SMART / Health Information log: what the disk itself calls critical;
//         there, percentage used may pass 100 without a failure, so that it is wear
//   ufs   JEDEC UFS, Health Descriptor: bPreEOLInfo, bDeviceLifeTimeEstA and B
//   own   this program's choice; likewise how grave each is, watch or failing
// Not judged: NVMe error log entries and UFS I/O errors, since both also count requests that were
// merely refused.
constexpr struct {
    const char* field;
    Test test;
    double limit;
    const char* limit_field;  // the disk's own limit instead
    Verdict verdict;
} kLimits[] = {
    {"criticalWarning", hasBit, 0, nullptr, Verdict::kFailing},    // log: spare
    {"criticalWarning", hasBit, 1, nullptr, Verdict::kWatch},      // log: temperature
    {"criticalWarning", hasBit, 2, nullptr, Verdict::kFailing},    // log: reliability
    {"criticalWarning", hasBit, 3, nullptr, Verdict::kFailing},    // log: read-only
    {"criticalWarning", hasBit, 4, nullptr, Verdict::kFailing},    // log: memory backup
    {"criticalWarning", hasBit, 5, nullptr, Verdict::kWatch},      // log: memory region
    {"criticalWarning", hasBitFrom, 6, nullptr, Verdict::kWatch},  // own: not known here
    {"availableSpare", isBelow, 0, "availableSpareThreshold", Verdict::kFailing},  // log
    {"availableSpare", isDownTo, 0, "availableSpareThreshold", Verdict::kWatch},   // own
    {"percentageUsed", reaches, 90, nullptr, Verdict::kWatch},                     // own
    {"numberOfMediaErrors", exceeds, 0, nullptr, Verdict::kWatch},                 // own
    {"preEndOfLifeInfo", is, 2, nullptr, Verdict::kWatch},                         // ufs: warning
    {"preEndOfLifeInfo", is, 3, nullptr, Verdict::kFailing},                       // ufs: urgent
    {"deviceLifeTimeEstimationA", reaches, 0x0A, nullptr, Verdict::kWatch},  // own: from 90 % on
    {"deviceLifeTimeEstimationB", reaches, 0x0A, nullptr, Verdict::kWatch},
};

// Of several bits only the one that is meant; a limit of the disk's own is named.
template <typename Limit>
std::string reasonOf(const Json& fields, const Limit& limit) {
    const auto index = static_cast<size_t>(limit.limit);
    std::string reason = label(limit.field) + ": ";
    reason += limit.test == hasBit ? kCriticalWarnings[index].words : words(fields, limit.field);
    if (limit.limit_field != nullptr) {
        reason +=
            limit.test == isBelow ? ", below its threshold of " : ", down to its threshold of ";
        reason += words(fields, limit.limit_field);
    }
    return reason;
}

}  // namespace

Assessment assess(const Json& health) {
    const Json* const fields = fieldsOf(health);
    if (fields == nullptr) return {Verdict::kUnknown, {}, {"the health could not be read"}};
    Assessment result;
    for (const auto& limit : kLimits) {
        const std::optional<double> value = reading(*fields, limit.field);
        if (!value) continue;
        result.verdict = std::max(result.verdict, Verdict::kOk);
        const double bound = limit.limit_field != nullptr
                                 ? reading(*fields, limit.limit_field).value_or(0)
                                 : limit.limit;
        if (!limit.test(*value, bound)) continue;
        result.verdict = std::max(result.verdict, limit.verdict);
        result.findings.push_back({limit.field, limit.verdict, reasonOf(*fields, limit)});
        result.reasons.push_back(result.findings.back().reason);
    }
    if (result.reasons.empty()) {
        result.reasons.emplace_back(result.verdict == Verdict::kOk
                                        ? "nothing that the disk reports is at a limit"
                                        : "the disk reports nothing to judge it by");
    }
    return result;
}

Json assessmentToJson(const Assessment& assessment) {
    return {{"verdict", kVerdictNames[static_cast<size_t>(assessment.verdict)]},
            {"reasons", assessment.reasons}};
}

}  // namespace disk_info::client
