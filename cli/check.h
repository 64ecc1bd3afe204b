// The result for a monitoring system, in the form of its plugins: one line with performance data,
// and an exit status.
#pragma once

#include <string>

#include "document.h"

namespace disk_info::cli {

inline constexpr int kCheckUnknown = 3;

struct CheckResult {
    std::string text;
    int status;  // 0 ok, 1 warning, 2 critical, 3 unknown
};

// `document`: that of Command::kCheck.
CheckResult Check(const Document& document);

// The result if there is no document.
CheckResult FailedCheck(const std::string& message);

}  // namespace disk_info::cli
