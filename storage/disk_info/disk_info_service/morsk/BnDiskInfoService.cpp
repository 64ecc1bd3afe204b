#include <binder/parcel_utils.h>
#include <morsk/BnDiskInfoService.h>

#include <iterator>
#include <memory>

namespace morsk::com::quendar::tavisk::disk_info {

using binder::ICInterfaceData;
using binder::ScopedStatus;
using binder::StrongBinder;

namespace {

// Entry i is the name of the method with code i + 1.
const char* functionNames[] = {"getDiskInfo", "getDiskHealth", "getDiskPower", "getFilesystemInfo"};

AIBinder_Class* defineClass() {
    AIBinder_Class* clazz =
        AIBinder_Class_define(IDiskInfoService::descriptor, ICInterfaceData::onCreate,
                              ICInterfaceData::onDestroy, BnDiskInfoService::onTransact);
    if (clazz == nullptr) return nullptr;
    AIBinder_Class_setOnDump(clazz, ICInterfaceData::onDump);
    AIBinder_Class_setHandleShellCommand(clazz, ICInterfaceData::handleShellCommand);
    AIBinder_Class_setTransactionCodeToFunctionNameMap(clazz, functionNames,
                                                       std::size(functionNames));
    return clazz;
}

template <typename Parcelable>
binder_status_t writeResult(AParcel* reply, const ScopedStatus& status,
                            const std::optional<Parcelable>& result) {
    if (binder_status_t written = AParcel_writeStatusHeader(reply, status.get())) return written;
    // After a failure the reply ends with the header.
    if (!status.isOk()) return STATUS_OK;
    return AParcel_writeNullableData(reply, result);
}

template <typename Parcelable>
binder_status_t callGetter(
    BnDiskInfoService* service,
    ScopedStatus (IDiskInfoService::*getter)(std::optional<Parcelable>* result), AParcel* reply) {
    std::optional<Parcelable> result;
    const ScopedStatus status = (service->*getter)(&result);
    return writeResult(reply, status, result);
}

binder_status_t callGetFilesystemInfo(BnDiskInfoService* service, const AParcel* request,
                                      AParcel* reply) {
    std::string partition;
    if (binder_status_t read = AParcel_readData(request, &partition)) return read;
    std::optional<FilesystemInfoParcel> result;
    const ScopedStatus status = service->getFilesystemInfo(partition, &result);
    return writeResult(reply, status, result);
}

template <typename Value>
binder_status_t writeConstant(AParcel* reply, const Value& value) {
    const ScopedStatus ok = ScopedStatus::ok();
    if (binder_status_t written = AParcel_writeStatusHeader(reply, ok.get())) return written;
    return AParcel_writeData(reply, value);
}

}  // namespace

ScopedStatus BnDiskInfoService::getInterfaceVersion(int32_t* result) {
    *result = version;
    return ScopedStatus::ok();
}

ScopedStatus BnDiskInfoService::getInterfaceHash(std::string* result) {
    *result = hash;
    return ScopedStatus::ok();
}

StrongBinder BnDiskInfoService::createBinder() {
    static AIBinder_Class* const clazz = defineClass();
    if (clazz == nullptr) return {};
    StrongBinder created(AIBinder_new(clazz, static_cast<binder::ICInterface*>(this)));
    AIBinder_markVintfStability(created.get());
    return created;
}

binder_status_t BnDiskInfoService::onTransact(AIBinder* binder, transaction_code_t code,
                                              const AParcel* request, AParcel* reply) {
    // Keeps the object alive during the call.
    const auto service =
        std::static_pointer_cast<BnDiskInfoService>(ICInterfaceData::getInterface(binder));
    if (!service) return STATUS_DEAD_OBJECT;
    switch (code) {
        case kGetDiskInfo:
            return callGetter(service.get(), &IDiskInfoService::getDiskInfo, reply);
        case kGetDiskHealth:
            return callGetter(service.get(), &IDiskInfoService::getDiskHealth, reply);
        case kGetDiskPower:
            return callGetter(service.get(), &IDiskInfoService::getDiskPower, reply);
        case kGetFilesystemInfo:
            return callGetFilesystemInfo(service.get(), request, reply);
        case kGetInterfaceHash:
            return writeConstant(reply, std::string(hash));
        case kGetInterfaceVersion:
            return writeConstant(reply, version);
        default:
            return STATUS_UNKNOWN_TRANSACTION;
    }
}

}  // namespace morsk::com::quendar::tavisk::disk_info
