// A document for collectors: OpenMetrics text in base units. A value that the disk does not report
// has no sample. The text uses only types that the older Prometheus text format has too.
#pragma once

#include <string>

#include "document.h"

namespace disk_info::cli {

// `document`: that of Command::kMetrics.
std::string MetricsText(const Document& document);

}  // namespace disk_info::cli
