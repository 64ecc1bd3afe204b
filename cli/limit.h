// The limit to how long the service is waited for. It works with every binder library, since it
// needs nothing of one: the calls run in a thread of their own, which is left behind when the time
// is over. There is never more than one such thread: while it hangs, no further call is made.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "query.h"

namespace disk_info::client {

// Does as ask() does, and throws NoService also when connecting and all calls together take longer
// than `limit`. An answer after that is dropped: it would be out of date. Not thread-safe. After
// NoService the thread may still be running, so the process is to end by _Exit().
Json askWithin(std::chrono::seconds limit, const Question& question,
               std::vector<std::string>* warnings);

}  // namespace disk_info::client
