// The command line.
#pragma once

#include <optional>

#include "document.h"
#include "metrics.h"
#include "output.h"

namespace disk_info::cli {

// Of all commands but check, whose statuses are those of CheckResult.
enum ExitStatus {
    kAllAnswered = 0,
    kOutputFailed = 1,
    kWrongUsage = 2,
    kServiceError = 3,
    kNotAnswered = 4
};

struct Options {
    Request request;
    bool as_json = false;
    MetricsFormat metrics_format = MetricsFormat::kPrometheus;
    Decoration decoration = Decoration::kAuto;
    unsigned timeout_seconds = 10;
    unsigned watch_seconds = 0;  // 0: print once
};

// Empty: the help, the version or a message has been printed, and the process must exit with
// *exit_status.
std::optional<Options> ParseOptions(int argc, char** argv, int* exit_status);

}  // namespace disk_info::cli
