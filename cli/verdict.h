// The verdict on a disk and its filesystems (unknown, ok, watch or failing) and its reasons. It
// depends only on values that they report and is printed beside them; it never replaces a field.
#pragma once

#include <string>
#include <vector>

#include "json.h"

namespace disk_info::cli {

// In ascending severity: the verdict is the highest one of the findings.
enum class Verdict { kUnknown, kOk, kWatch, kFailing };
inline constexpr const char* kVerdictNames[]{"unknown", "ok", "watch", "failing"};

constexpr const char* NameOf(Verdict verdict) {
    return kVerdictNames[static_cast<size_t>(verdict)];
}

struct Finding {
    std::string field;      // "": the reason concerns no single field
    std::string partition;  // of a filesystem; "": the disk
    Verdict verdict;
    std::string reason;
};

struct Assessment {
    Verdict verdict = Verdict::kUnknown;
    // The worst finding on the field; kOk if there is none.
    Verdict On(const std::string& field, const std::string& partition) const;
    // The findings, the most severe ones first.
    std::vector<Finding> BySeverity() const;

    std::vector<Finding> findings;  // at least one, in the order of the table of limits
};

// The fields of one answer; null if the call failed or returned no result.
struct Subject {
    std::string partition;  // of a filesystem; "": the health of the disk
    const Json* fields;
};

// `subjects`: at least one. Without a value of the first one, the verdict is never ok.
Assessment Assess(const std::vector<Subject>& subjects);

}  // namespace disk_info::cli
