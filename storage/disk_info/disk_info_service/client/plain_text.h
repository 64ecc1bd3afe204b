// The document for people: aligned "Name: value" lines. Texts that a disk says are hostile: bytes
// that are no UTF-8 are replaced, and everything beyond printable ASCII is escaped as in JSON.
#pragma once

#include <string>

#include "query.h"

namespace disk_info::client {

// The whole document, a headed section a call where it holds more than one.
std::string plainText(const Json& document);

// One answer as its error in words, or "" where it is none.
std::string errorText(const Json& answer);

// `text` as it may stand on a terminal.
std::string printable(const std::string& text);

}  // namespace disk_info::client
