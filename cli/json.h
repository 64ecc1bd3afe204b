// The model of the command: documents and their parts, keys in the order of their fields.
#pragma once

#include <nlohmann/json.hpp>

namespace disk_info::client {

using Json = nlohmann::ordered_json;

}  // namespace disk_info::client
