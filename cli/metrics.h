// A document for collectors, in base units. A value that the disk does not report has no sample.
#pragma once

#include <string>

#include "document.h"

namespace disk_info::cli {

// Both formats have the same samples. The Prometheus text format is what a textfile collector
// reads.
enum class MetricsFormat { kPrometheus, kOpenMetrics };

// `document`: that of Command::kMetrics.
std::string MetricsText(const Document& document,
                        MetricsFormat format = MetricsFormat::kPrometheus);

}  // namespace disk_info::cli
