// Messages about calls that failed. For an error of the service they name the link below /dev/block
// that the service needs and that is missing, if there is one.
#pragma once

#include <string>
#include <vector>

#include "document.h"

namespace disk_info::cli {

// One line for each reason, with the calls that failed for it. A connection error has no line: the
// caller prints the message of the ConnectionError instead.
std::vector<std::string> FailureLines(const Document& document);

}  // namespace disk_info::cli
