// The verdict on a disk: ok, watch or failing, and why. It judges nothing but what the disk reports
// of itself, and stands beside the raw fields, never in their place.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "json.h"

namespace disk_info::client {

// From the one that nothing is to be done about to the one that overrules the others.
enum class Verdict { kUnknown, kOk, kWatch, kFailing };
inline constexpr std::array<const char*, 4> kVerdictNames{"unknown", "ok", "watch", "failing"};

// One field at or beyond one of its limits.
struct Finding {
    std::string field;
    Verdict verdict;
    std::string reason;
};

struct Assessment {
    Verdict verdict = Verdict::kUnknown;
    std::vector<Finding> findings;     // in the order of the table of limits
    std::vector<std::string> reasons;  // at least one, also where there is no finding
};

// `health` is the answer to the health call, whatever it is.
Assessment assess(const Json& health);

// {"verdict": "watch", "reasons": ["…"]}
Json assessmentToJson(const Assessment& assessment);

}  // namespace disk_info::client
