// Queries the service. Each query opens a connection of its own and closes it afterwards, so that
// an idle service can stop.
#pragma once

#include <stdexcept>

#include "document.h"

namespace disk_info::cli {

// The service could not be reached, the connection broke, or a reply was malformed. what() is one
// line for the user.
class ConnectionError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Connects and makes the calls of the request; waits without limit. Throws ConnectionError.
//
// If the hash of the service's interface differs from this program's, the document has a warning,
// and a reply that cannot be decoded is an error of its call instead of an exception.
Document Query(const Request& request);

}  // namespace disk_info::cli
