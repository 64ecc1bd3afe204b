#include "query.h"

#include <binder/service_manager.h>

#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <optional>
#include <type_traits>
#include <utility>

namespace disk_info::client {

using namespace morsk::com::quendar::tavisk::disk_info;
using binder::ScopedStatus;

namespace {

// Up to here a double, which is what many JSON readers make of a number, is exact.
constexpr uint64_t kLargestExact = uint64_t{1} << 53;

template <typename Value>
Json toJson(const Value& value) {
    if constexpr (std::is_same_v<Value, float>) {
        // The shortest text that means this float: 0.1, not 0.10000000149011612.
        char text[32];
        const auto end = std::to_chars(text, text + sizeof text, value).ptr;
        return Json::parse(text, end, nullptr, /*allow_exceptions=*/false);
    } else {
        return value;
    }
}

template <typename Parcelable>
Json fieldsToJson(const Parcelable& parcelable) {
    Json fields = Json::object();
    forEachField<Parcelable>([&](const auto& field) {
        const auto& value = parcelable.*field.member;
        using Value = std::decay_t<decltype(value)>;
        if constexpr (std::is_integral_v<Value> && !std::is_same_v<Value, bool>) {
            if (field.is_unsigned) {
                const auto bits = static_cast<std::make_unsigned_t<Value>>(value);
                fields[field.name] = bits;
                if (bits > kLargestExact) {
                    fields[std::string(field.name) + "_s"] = std::to_string(bits);
                }
                return;
            }
        }
        fields[field.name] = toJson(value);
    });
    return fields;
}

template <typename Nvme, typename Ufs>
Json fieldsToJson(const DiskUnion<Nvme, Ufs>& disk) {
    if (const Nvme* nvme = disk.nvme()) return {{"nvme", fieldsToJson(*nvme)}};
    return {{"ufs", fieldsToJson(*disk.ufs())}};
}

Json errorToJson(const char* kind, int32_t code) {
    return {{"error", {{"kind", kind}, {"code", code}}}};
}

template <typename Parcelable, typename Call>
Json ask(Call&& call) {
    std::optional<Parcelable> result;
    const ScopedStatus status = call(&result);
    switch (const binder_exception_t exception = AStatus_getExceptionCode(status.get())) {
        case EX_NONE:
            return result ? fieldsToJson(*result) : Json();
        case EX_SERVICE_SPECIFIC:
            return errorToJson("service", AStatus_getServiceSpecificError(status.get()));
        case EX_TRANSACTION_FAILED:
            throw NoService("the service broke off or sent a malformed reply (status " +
                            std::to_string(AStatus_getStatus(status.get())) +
                            "); ask again, and see the system log if it stays so");
        default:
            return errorToJson("exception", exception);
    }
}

}  // namespace

std::shared_ptr<Service> connect() {
    const std::string instance = std::string(Service::descriptor) + "/default";
    binder::StrongBinder binder(AServiceManager_checkService(instance.c_str()));
    if (!binder) {
        const int error = errno;
        const char* advice = error == EACCES || error == EPERM
                                 ? "run it as root or as a member of the group of its socket"
                                 : "start disk_info_service as root, or enable its socket unit";
        throw NoService("no service " + instance + ": " + std::strerror(error) + "; " + advice);
    }
    return binder::SharedRefBase::make<BpDiskInfoService>(std::move(binder));
}

Json askInfo(Service& service) {
    return ask<DiskInfoParcel>([&](auto* result) { return service.getDiskInfo(result); });
}

Json askHealth(Service& service) {
    return ask<DiskHealthParcel>([&](auto* result) { return service.getDiskHealth(result); });
}

Json askPower(Service& service) {
    return ask<DiskPowerParcel>([&](auto* result) { return service.getDiskPower(result); });
}

Json askFilesystem(Service& service, const std::string& partition) {
    return ask<FilesystemInfoParcel>(
        [&](auto* result) { return service.getFilesystemInfo(partition, result); });
}

}  // namespace disk_info::client
