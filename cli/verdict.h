// The verdict on a disk (unknown, ok, watch or failing) and its reasons. It depends only on values
// that the disk reports and is printed beside them; it never replaces a field.
#pragma once

#include <string>
#include <vector>

#include "json.h"

namespace disk_info::cli {

// In ascending severity: the verdict on a disk is the highest one of its findings.
enum class Verdict { kUnknown, kOk, kWatch, kFailing };
inline constexpr const char* kVerdictNames[]{"unknown", "ok", "watch", "failing"};

constexpr const char* NameOf(Verdict verdict) {
    return kVerdictNames[static_cast<size_t>(verdict)];
}

struct Finding {
    std::string field;  // "": the reason concerns no single field
    Verdict verdict;
    std::string reason;
};

struct Assessment {
    Verdict verdict = Verdict::kUnknown;
    std::vector<Finding> findings;  // at least one, in the order of the table of limits
};

// `health`: the fields of the health call; null if it failed or returned no result.
Assessment Assess(const Json* health);

}  // namespace disk_info::cli
