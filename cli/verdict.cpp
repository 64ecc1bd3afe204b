#include "verdict.h"

#include <algorithm>
#include <functional>
#include <optional>

#include "fields.h"
#include "format.h"

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
    {"errorCount", Exceeds, 0, nullptr, Verdict::kWatch},  // own
};

// A row for bits of the critical warning names only those bits.
std::string WordsFor(const Json& fields, const Limit& limit) {
    if (limit.test != HasBit && limit.test != HasBitFrom) return Words(fields, limit.field);
    const unsigned mask = limit.test == HasBit ? 1U : ~0U;
    return WarningWords(fields[limit.field].get<unsigned>() &
                        mask << static_cast<unsigned>(limit.limit));
}

std::string ReasonFor(const Subject& subject, const Limit& limit) {
    const Json& fields = *subject.fields;
    std::string reason = Label(limit.field);
    if (!subject.partition.empty()) reason += " of " + Printable(subject.partition);
    reason += ": " + WordsFor(fields, limit);
    if (limit.limit_field == nullptr) return reason;
    reason += limit.test == IsBelow ? ", below its threshold of " : ", at its threshold of ";
    return reason + Words(fields, limit.limit_field);
}

// Adds the findings on the subject; returns whether it reports a value that has a limit.
bool AddFindings(const Subject& subject, std::vector<Finding>* findings) {
    bool is_assessed = false;
    for (const Limit& limit : kLimits) {
        const std::optional<double> value = Reading(*subject.fields, limit.field);
        if (!value) continue;
        is_assessed = true;
        const double bound = limit.limit_field != nullptr
                                 ? Reading(*subject.fields, limit.limit_field).value_or(0)
                                 : limit.limit;
        if (!limit.test(*value, bound)) continue;
        findings->push_back(
            {limit.field, subject.partition, limit.verdict, ReasonFor(subject, limit)});
    }
    return is_assessed;
}

}  // namespace

Verdict Assessment::On(const std::string& field, const std::string& partition) const {
    Verdict worst = Verdict::kOk;
    for (const Finding& finding : findings) {
        if (finding.field != field || finding.partition != partition) continue;
        worst = std::max(worst, finding.verdict);
    }
    return worst;
}

std::vector<Finding> Assessment::BySeverity() const {
    std::vector<Finding> sorted = findings;
    std::ranges::stable_sort(sorted, std::greater(), &Finding::verdict);
    return sorted;
}

Assessment Assess(const std::vector<Subject>& subjects) {
    Assessment result;
    for (const Subject& subject : subjects) {
        const bool is_first = &subject == &subjects.front();
        if (subject.fields != nullptr) {
            const bool is_assessed = AddFindings(subject, &result.findings);
            if (is_first && is_assessed) result.verdict = Verdict::kOk;
        } else if (is_first) {
            result.findings.push_back({"", subject.partition, Verdict::kUnknown,
                                       subject.partition.empty()
                                           ? "the health data could not be read"
                                           : "the error counters could not be read"});
        }
    }
    for (const Finding& finding : result.findings) {
        result.verdict = std::max(result.verdict, finding.verdict);
    }
    if (result.findings.empty()) {
        result.findings.push_back({"", "", result.verdict,
                                   result.verdict == Verdict::kOk
                                       ? "all reported values are within limits"
                                       : "the disk reports no value that can be assessed"});
    }
    return result;
}

}  // namespace disk_info::cli
