// Numbers, units and text: conversions that do not depend on a field. Every returned text is safe
// on a terminal if the arguments are.
#pragma once

#include <optional>
#include <string>

#include "json.h"

namespace disk_info::cli {

// printf into a string, cut at 63 bytes.
[[gnu::format(printf, 1, 2)]] std::string Format(const char* pattern, ...);

// A number, a bool as 0 or 1, or a text that holds one unsigned number of up to 32 bits: decimal,
// or hexadecimal after 0x or 0X. Empty: anything else.
//
// The storage library parses the same form, but the command does not link it. White space is not
// skipped: the service trims the texts that hold numbers.
std::optional<double> NumberOf(const Json& value);

// Three significant digits in the largest unit that leaves a value of at least 1: "256 GB".
std::string DecimalSize(double bytes);
std::string BinarySize(double bytes);  // "238 GiB", and up to "1023 GiB"

// `text` made safe for a terminal: trailing blanks are removed, bytes that are not UTF-8 replaced,
// and quotes, backslashes and everything outside printable ASCII escaped as in JSON.
std::string Printable(std::string text);

// `text` in double quotes, with a backslash before each quote and backslash.
std::string Quoted(const std::string& text);

}  // namespace disk_info::cli
