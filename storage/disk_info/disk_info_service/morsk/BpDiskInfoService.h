// Client side of IDiskInfoService: sends each call to its binder, local or remote.
//
// In addition to the statuses of the service, a method returns EX_TRANSACTION_FAILED if the call
// did not reach the service or the reply is malformed. AStatus_getStatus then has the transport
// code, and *result is unchanged.
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
