// The document for people: aligned "Name: words" lines, a headed section a call where it holds
// more than one, the verdict at the end of the health.
#pragma once

#include <string>

#include "json.h"

namespace disk_info::client {

// Decorated: wear and spare as bars, these and the verdict in colour.
std::string plainText(const Json& document, bool decorated);

// Whether standard output is a terminal whose user does not refuse colour (NO_COLOR).
bool wantsDecoration();

}  // namespace disk_info::client
