// A time limit for a query. The query runs in a detached thread, which is abandoned at the limit;
// this works with any binder library. At most one such thread exists: while it hangs, no other
// query starts.
#pragma once

#include <chrono>

#include "connection.h"

namespace disk_info::cli {

// Query() with a limit for connecting and all calls together; throws ConnectionError at the limit
// too. The result of an abandoned query is discarded, because it is out of date. Not thread-safe.
// After ConnectionError the thread may still run, so the process must end by _Exit().
Document QueryWithin(std::chrono::seconds limit, const Request& request);

}  // namespace disk_info::cli
