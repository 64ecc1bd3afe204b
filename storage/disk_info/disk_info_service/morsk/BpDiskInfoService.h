// The client side of IDiskInfoService: sends each call to the binder it holds, local or remote.
//
// Beside the service's own statuses a method returns EX_TRANSACTION_FAILED, with the transport
// code in AStatus_getStatus, when the call did not reach the service or its reply is malformed.
// *result is then as it was.
#pragma once

#include <morsk/IDiskInfoService.h>

namespace morsk::com::quendar::tavisk::disk_info {

class BpDiskInfoService : public binder::BpCInterface<IDiskInfoService> {
  public:
    using BpCInterface::BpCInterface;

    binder::ScopedStatus getDiskInfo(std::optional<DiskInfoParcel>* result) override;
    binder::ScopedStatus getDiskHealth(std::optional<DiskHealthParcel>* result) override;
    binder::ScopedStatus getDiskPower(std::optional<DiskPowerParcel>* result) override;
    binder::ScopedStatus getFilesystemInfo(const std::string& partition,
                                           std::optional<FilesystemInfoParcel>* result) override;
    binder::ScopedStatus getInterfaceVersion(int32_t* result) override;
    binder::ScopedStatus getInterfaceHash(std::string* result) override;
};

}  // namespace morsk::com::quendar::tavisk::disk_info
