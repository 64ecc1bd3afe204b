// What the fields of a document mean, in base units and the same for all kinds of disks.
#pragma once

#include "document.h"

namespace disk_info::cli {

// An object with the readings of the calls in the document; packaging/disk_info.schema.json
// describes them. A value that is not reported is null.
Json Readings(const Document& document);

}  // namespace disk_info::cli
