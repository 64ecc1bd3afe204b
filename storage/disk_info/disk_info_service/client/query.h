// Asks the service, and turns its answers into one JSON document: the model that both output
// forms print. Keys and their order are those of the parcelables.
#pragma once

#include <morsk/BpDiskInfoService.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

namespace disk_info::client {

using Json = nlohmann::ordered_json;
using Service = morsk::com::quendar::tavisk::disk_info::IDiskInfoService;

// There is no service to talk to, or no sense in what it says. what() is one line for the user.
class NoService : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Throws NoService.
std::shared_ptr<Service> connect();

// What one call answered: {"nvme": {…}}, {"ufs": {…}}, a filesystem's fields, null for an absent
// result, or {"error": {"kind": "service" or "exception", "code": …}}. Throws NoService.
Json askInfo(Service& service);
Json askHealth(Service& service);
Json askPower(Service& service);
Json askFilesystem(Service& service, const std::string& partition);

}  // namespace disk_info::client
