// A document for collectors: OpenMetrics text in base units. A value that the disk does not report
// has no sample. Only types that the older Prometheus text format has too are used.
#pragma once

#include <string>

#include "document.h"

namespace disk_info::cli {

// `document`: that of Command::kMetrics.
std::string MetricsText(const Document& document);

}  // namespace disk_info::cli
