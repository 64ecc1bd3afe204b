// The calls of a document that failed, in words.
#pragma once

#include <string>
#include <vector>

#include "json.h"

namespace disk_info::client {

// One answer as its error, or "" where it is none.
std::string errorText(const Json& answer);

// One line for each call that failed, with what may help.
std::vector<std::string> failures(const Json& document);

}  // namespace disk_info::client
