// The document for collectors: OpenMetrics text in base units. What the disk does not report has
// no sample. Types are those that readers of the older Prometheus text format know as well.
#pragma once

#include <string>

#include "json.h"

namespace disk_info::client {

// `document` is that of the metrics command: all calls, answered or failed.
std::string metricsText(const Json& document);

}  // namespace disk_info::client
