#include <binder/parcel_utils.h>
#include <morsk/BpDiskInfoService.h>

namespace morsk::com::quendar::tavisk::disk_info {

using binder::ScopedParcel;
using binder::ScopedStatus;

namespace {

template <typename Parcelable>
binder_status_t readResult(const AParcel* reply, std::optional<Parcelable>* result) {
    return AParcel_readNullableData(reply, result);
}
binder_status_t readResult(const AParcel* reply, int32_t* result) {
    return AParcel_readData(reply, result);
}
binder_status_t readResult(const AParcel* reply, std::string* result) {
    return AParcel_readData(reply, result);
}

// Sends the request and consumes it.
template <typename Result>
ScopedStatus transact(AIBinder* binder, transaction_code_t code, ScopedParcel request,
                      Result* result) {
    ScopedParcel reply;
    binder_status_t sent = AIBinder_transact(binder, code, request.slot(), reply.slot(), 0);
    if (sent != STATUS_OK) return ScopedStatus::fromStatus(sent);
    ScopedStatus status;
    binder_status_t read = AParcel_readStatusHeader(reply.get(), status.slot());
    if (read != STATUS_OK) return ScopedStatus::fromStatus(read);
    if (!status.isOk()) return status;
    return ScopedStatus::fromStatus(readResult(reply.get(), result));
}

template <typename Result>
ScopedStatus call(AIBinder* binder, transaction_code_t code, Result* result) {
    ScopedParcel request;
    binder_status_t status = AIBinder_prepareTransaction(binder, request.slot());
    if (status != STATUS_OK) return ScopedStatus::fromStatus(status);
    return transact(binder, code, std::move(request), result);
}

}  // namespace

ScopedStatus BpDiskInfoService::getDiskInfo(std::optional<DiskInfoParcel>* result) {
    return call(binder(), kGetDiskInfo, result);
}

ScopedStatus BpDiskInfoService::getDiskHealth(std::optional<DiskHealthParcel>* result) {
    return call(binder(), kGetDiskHealth, result);
}

ScopedStatus BpDiskInfoService::getDiskPower(std::optional<DiskPowerParcel>* result) {
    return call(binder(), kGetDiskPower, result);
}

ScopedStatus BpDiskInfoService::getFilesystemInfo(const std::string& partition,
                                                  std::optional<FilesystemInfoParcel>* result) {
    ScopedParcel request;
    binder_status_t status = AIBinder_prepareTransaction(binder(), request.slot());
    if (status == STATUS_OK) status = AParcel_writeData(request.get(), partition);
    if (status != STATUS_OK) return ScopedStatus::fromStatus(status);
    return transact(binder(), kGetFilesystemInfo, std::move(request), result);
}

ScopedStatus BpDiskInfoService::getInterfaceVersion(int32_t* result) {
    return call(binder(), kGetInterfaceVersion, result);
}

ScopedStatus BpDiskInfoService::getInterfaceHash(std::string* result) {
    return call(binder(), kGetInterfaceHash, result);
}

}  // namespace morsk::com::quendar::tavisk::disk_info
