// Implements the four calls of IDiskInfoService. Stateless: each call finds the disk, creates the
// storage object for its kind, reads the kernel's interfaces once and converts the record into a
// parcelable. The only code that uses both storage records and parcelables.
#pragma once

#include <morsk/BnDiskInfoService.h>

namespace morsk::com::quendar::tavisk::disk_info {

class DiskInfoService : public BnDiskInfoService {
  public:
    // Service-specific error -1: the root device was not found, or is neither NVMe nor UFS; for
    // getDiskHealth also if the health record cannot be read. An identity or power state that
    // cannot be read is not an error: the parcelable then holds "", zeros and false.
    binder::ScopedStatus getDiskInfo(std::optional<DiskInfoParcel>* result) override;
    binder::ScopedStatus getDiskHealth(std::optional<DiskHealthParcel>* result) override;
    binder::ScopedStatus getDiskPower(std::optional<DiskPowerParcel>* result) override;

    // Illegal-argument exception: the name does not contain "data", or selects an NVMe or UFS disk.
    // Service-specific error -1: the partition is neither userdata nor metadata, or its counters
    // cannot be read. A counter that is not a number is 0.
    binder::ScopedStatus getFilesystemInfo(const std::string& partition,
                                           std::optional<FilesystemInfoParcel>* result) override;
};

}  // namespace morsk::com::quendar::tavisk::disk_info
