#include "query.h"

#include <binder/service_manager.h>
#include <morsk/BpDiskInfoService.h>

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

#include "assessment.h"
#include "explanation.h"

namespace disk_info::client {

using namespace morsk::com::quendar::tavisk::disk_info;
using binder::ScopedStatus;

namespace {

// Up to here a double, which is what many JSON readers make of a number, is exact.
constexpr uint64_t kLargestExact = uint64_t{1} << 53;

template <typename Value>
Json valueToJson(const Value& value) {
    if constexpr (std::is_same_v<Value, float>) {
        if (!std::isfinite(value)) return nullptr;
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
            if (field.isUnsigned) {
                const auto bits = static_cast<std::make_unsigned_t<Value>>(value);
                fields[field.name] = bits;
                if (bits > kLargestExact) {
                    fields[std::string(field.name) + "_s"] = std::to_string(bits);
                }
                return;
            }
        }
        fields[field.name] = valueToJson(value);
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

// What helps against a refused connection.
const char* adviceFor(int error) {
    switch (error) {
        case ENOENT:
        case ECONNREFUSED:
            return "; install the package disk-info, or enable its socket: "
                   "systemctl enable --now disk-info.socket";
        case EACCES:
        case EPERM:
            return "; join the group disk-info (sudo usermod -aG disk-info \"$USER\", then log in "
                   "anew), or use sudo";
        default:
            return "";
    }
}

class Connection {
  public:
    Connection() {
        const std::string instance = std::string(IDiskInfoService::descriptor) + "/default";
        binder::StrongBinder binder(AServiceManager_checkService(instance.c_str()));
        if (!binder) {
            const int error = errno;
            throw NoService("no service " + instance + ": " + std::strerror(error) +
                            adviceFor(error));
        }
        service_ = binder::SharedRefBase::make<BpDiskInfoService>(std::move(binder));
    }

    // The hash of the service's interface where it is not the one known here.
    std::optional<std::string> foreignHash() {
        std::string hash;
        // A service that cannot answer this will not answer the calls either, and they tell why.
        foreign_ = service_->getInterfaceHash(&hash).isOk() && hash != IDiskInfoService::hash;
        return foreign_ ? std::optional(hash) : std::nullopt;
    }

    // What the service answers; `getter` calls it and passes the result on.
    template <typename Parcelable, typename Getter>
    Json call(Getter&& getter) {
        std::optional<Parcelable> result;
        const ScopedStatus status = getter(*service_, &result);
        switch (const binder_exception_t exception = AStatus_getExceptionCode(status.get())) {
            case EX_NONE:
                return result ? fieldsToJson(*result) : Json();
            case EX_SERVICE_SPECIFIC:
                return errorToJson("service", AStatus_getServiceSpecificError(status.get()));
            case EX_TRANSACTION_FAILED:
                return failed(AStatus_getStatus(status.get()));
            default:
                return errorToJson("exception", exception);
        }
    }

  private:
    Json failed(binder_status_t status) const {
        if (foreign_ && status != STATUS_DEAD_OBJECT) return errorToJson("reply", status);
        throw NoService("the service broke off or sent a malformed reply (status " +
                        std::to_string(status) +
                        "); ask again, and see the system log if it stays so");
    }

    std::shared_ptr<IDiskInfoService> service_;
    bool foreign_ = false;
};

// Tells what one call answers: info, health, power or fs, the last with a partition.
using Answer = std::function<Json(const std::string& call, const std::string& partition)>;

Json documentOf(const Question& question, const Answer& answer) {
    const bool all = question.command == "status" || question.command == "metrics";
    Json document{{"schemaVersion", 1}};
    for (const char* call : {"info", "health", "power"}) {
        if (all || question.command == call) document[call] = answer(call, "");
    }
    if (question.command == "fs") {
        document["filesystems"][question.partition] = answer("fs", question.partition);
    }
    for (const char* partition : kPartitions) {
        if (all) document["filesystems"][partition] = answer("fs", partition);
    }
    if (document.contains("health")) {
        document["assessment"] = assessmentToJson(assess(document["health"]));
    }
    return document;
}

}  // namespace

Json ask(const Question& question, std::vector<std::string>* warnings) {
    Connection connection;
    if (const std::optional<std::string> hash = connection.foreignHash()) {
        warnings->push_back("the service's interface is another one (hash " + printable(*hash) +
                            "); the fields that are known are shown");
    }
    return documentOf(question, [&](const std::string& call, const std::string& partition) {
        using Service = IDiskInfoService;
        if (call == "info") {
            return connection.call<DiskInfoParcel>(std::mem_fn(&Service::getDiskInfo));
        }
        if (call == "health") {
            return connection.call<DiskHealthParcel>(std::mem_fn(&Service::getDiskHealth));
        }
        if (call == "power") {
            return connection.call<DiskPowerParcel>(std::mem_fn(&Service::getDiskPower));
        }
        return connection.call<FilesystemInfoParcel>([&](Service& service, auto* result) {
            return service.getFilesystemInfo(partition, result);
        });
    });
}

Json unanswered(const Question& question) {
    return documentOf(question, [](const std::string& /*call*/, const std::string& /*partition*/) {
        return errorToJson("connection", 0);
    });
}

}  // namespace disk_info::client
