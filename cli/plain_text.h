// A document for people: aligned "Label: words" lines, a headed section for each call if there is
// more than one, and the verdict at the end of the health section.
#pragma once

#include <string>

#include "document.h"

namespace disk_info::cli {

// Decorated: wear and spare have bars, and the bars and the verdict have colour.
std::string PlainText(const Document& document, bool decorated);

}  // namespace disk_info::cli
