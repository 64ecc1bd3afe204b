// Asks the service, and turns its answers into one JSON document: the model that all output forms
// print. Keys and their order are those of the parcelables.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "json.h"

namespace disk_info::client {

// What the service serves.
inline constexpr const char* kPartitions[] = {"userdata", "metadata"};

// There is no service to talk to, or no sense in what it says. what() is one line for the user.
class NoService : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// What is to be asked: a sub-command's name and, for fs, the partition.
struct Question {
    std::string command;
    std::string partition;
};

// Connects, asks and lets go, so that an idle service may leave. The document has, as far as they
// are asked for, "info", "health", "power", "filesystems" and "assessment" behind "schemaVersion".
// What one call answered: {"nvme": {…}}, {"ufs": {…}}, a filesystem's fields, null for an absent
// result, or {"error": {"kind": "service", "exception" or "reply", "code": …}}. Appends to
// `warnings` when the service's interface is another one; a reply that makes no sense is then an
// error of its call. Otherwise, and when the connection breaks, throws NoService.
Json ask(const Question& question, std::vector<std::string>* warnings);

// The document of a question that found no service: every call is an error of kind "connection".
Json unanswered(const Question& question);

}  // namespace disk_info::client
