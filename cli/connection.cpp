#include "connection.h"

#include <binder/service_manager.h>
#include <morsk/BpDiskInfoService.h>

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <functional>
#include <memory>
#include <tuple>
#include <type_traits>
#include <utility>

#include "format.h"

namespace disk_info::cli {

using namespace morsk::com::quendar::tavisk::disk_info;
using binder::ScopedStatus;

namespace {

template <typename Value>
Json ValueToJson(const Value& value, bool is_unsigned) {
    if constexpr (std::is_same_v<Value, float>) {
        if (!std::isfinite(value)) return nullptr;
        // The shortest text that identifies the float: 0.1 instead of 0.10000000149011612.
        char text[32];
        const auto end = std::to_chars(text, text + sizeof(text), value).ptr;
        return Json::parse(text, end, nullptr, /*allow_exceptions=*/false);
    } else if constexpr (std::is_same_v<Value, int32_t> || std::is_same_v<Value, int64_t>) {
        if (is_unsigned) return static_cast<std::make_unsigned_t<Value>>(value);
        return value;
    } else {
        return value;
    }
}

template <typename Parcelable>
Json FieldsOf(const Parcelable& parcelable) {
    Json::object_t fields;
    fields.reserve(std::tuple_size_v<decltype(Parcelable::kFields)>);
    forEachField<Parcelable>([&](const auto& field) {
        fields.emplace_back(field.name, ValueToJson(parcelable.*field.member, field.isUnsigned));
    });
    return fields;
}

template <typename Parcelable>
Answer AnswerFrom(const Parcelable& parcelable) {
    return {{}, Arm::kNone, FieldsOf(parcelable)};
}

template <typename Nvme, typename Ufs>
Answer AnswerFrom(const DiskUnion<Nvme, Ufs>& disk) {
    if (const Nvme* nvme = disk.nvme()) return {{}, Arm::kNvme, FieldsOf(*nvme)};
    return {{}, Arm::kUfs, FieldsOf(*disk.ufs())};
}

Answer Failed(ErrorKind kind, int32_t code) {
    return {CallError{kind, code}, Arm::kNone, {}};
}

// Advice to append to the message for a connection error; "" if there is no advice for it.
const char* AdviceFor(int error) {
    switch (error) {
        case ENOENT:
        case ECONNREFUSED:
            return "; install the package disk-info or enable its socket: "
                   "systemctl enable --now disk-info.socket";
        case EACCES:
        case EPERM:
            return "; join the group disk-info (sudo usermod -aG disk-info \"$USER\", then log in "
                   "again) or use sudo";
        default:
            return "";
    }
}

class Connection {
  public:
    Connection() {
        std::string instance = IDiskInfoService::descriptor;
        instance += "/default";  // GCC 14 warns falsely if operator+ joins them
        binder::StrongBinder binder(AServiceManager_checkService(instance.c_str()));
        if (!binder) {
            const int error = errno;
            throw ConnectionError("cannot connect to " + instance + ": " + std::strerror(error) +
                                  AdviceFor(error));
        }
        service_ = binder::SharedRefBase::make<BpDiskInfoService>(std::move(binder));
    }

    // A warning if the service's interface differs from this program's; otherwise "". A failure of
    // this call is not reported: if the later calls fail too, they report their own errors.
    std::string CheckInterface() {
        std::string hash;
        is_foreign_ = service_->getInterfaceHash(&hash).isOk() && hash != IDiskInfoService::hash;
        if (!is_foreign_) return "";
        return "the service has a different interface (hash " + Printable(hash) +
               "); only known fields are shown";
    }

    Answer Make(Call call, const std::string& partition) {
        using Service = IDiskInfoService;
        switch (call) {
            case Call::kInfo:
                return Make<DiskInfoParcel>(std::mem_fn(&Service::getDiskInfo));
            case Call::kHealth:
                return Make<DiskHealthParcel>(std::mem_fn(&Service::getDiskHealth));
            case Call::kPower:
                return Make<DiskPowerParcel>(std::mem_fn(&Service::getDiskPower));
            case Call::kFilesystem:
                break;
        }
        return Make<FilesystemInfoParcel>([&](Service& service, auto* result) {
            return service.getFilesystemInfo(partition, result);
        });
    }

  private:
    template <typename Parcelable, typename Getter>
    Answer Make(Getter&& getter) {
        std::optional<Parcelable> result;
        const ScopedStatus status = getter(*service_, &result);
        switch (const binder_exception_t exception = AStatus_getExceptionCode(status.get())) {
            case EX_NONE:
                return result ? AnswerFrom(*result) : Answer{};
            case EX_SERVICE_SPECIFIC:
                return Failed(ErrorKind::kService, AStatus_getServiceSpecificError(status.get()));
            case EX_TRANSACTION_FAILED:
                return TransactionFailed(AStatus_getStatus(status.get()));
            default:
                return Failed(ErrorKind::kException, exception);
        }
    }

    Answer TransactionFailed(binder_status_t status) const {
        if (is_foreign_ && status != STATUS_DEAD_OBJECT) return Failed(ErrorKind::kReply, status);
        throw ConnectionError("the connection broke or the reply was malformed (status " +
                              std::to_string(status) +
                              "); try again, and check the system log if it fails again");
    }

    std::shared_ptr<IDiskInfoService> service_;
    bool is_foreign_ = false;
};

}  // namespace

Document Query(const Request& request) {
    Connection connection;
    std::string warning = connection.CheckInterface();
    Document document = MakeDocument(request, [&](Call call, const std::string& partition) {
        return connection.Make(call, partition);
    });
    document.warning = std::move(warning);
    return document;
}

}  // namespace disk_info::cli
