// The JSON library and the one type that the command uses of it. Keys keep the order in which they
// were added.
#pragma once

#include <nlohmann/json.hpp>

namespace disk_info::cli {

using Json = nlohmann::ordered_json;

}  // namespace disk_info::cli
