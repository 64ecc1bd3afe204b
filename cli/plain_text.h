// A document for people: aligned "Label: words" lines, a headed section for each call if there is
// more than one, and the verdict with its reasons at the end of the health or of the filesystem.
// The status begins with a summary. Lines that do not apply and calls that failed are left out.
#pragma once

#include <string>

#include "document.h"

namespace disk_info::cli {

// Vendor and model, type and size of the disk, as far as they are reported; otherwise "Disk".
std::string DiskTitle(const Document& document);

// Decorated: wear and spare have bars, and the verdict and each value that affects it have colour.
// `width`: columns of a line, which ends between words; 0: any number.
std::string PlainText(const Document& document, bool decorated, size_t width = 0);

}  // namespace disk_info::cli
