// Answers the four calls of IDiskInfoService.
//
// Keeps nothing between calls: each one finds the disk, builds the storage object of its kind,
// reads the kernel's interfaces once, and turns the record into a parcelable. Only here do
// storage records and parcelables meet.
#pragma once

#include <morsk/BnDiskInfoService.h>

namespace morsk::com::quendar::tavisk::disk_info {

class DiskInfoService : public BnDiskInfoService {
  public:
    // Service-specific error -1: no root device, or a disk of another kind than NVMe and UFS;
    // for getDiskHealth also a health record that cannot be read. An identity or a power state
    // that cannot be read is no error: the parcelable then holds empty texts, zeros and false.
    binder::ScopedStatus getDiskInfo(std::optional<DiskInfoParcel>* result) override;
    binder::ScopedStatus getDiskHealth(std::optional<DiskHealthParcel>* result) override;
    binder::ScopedStatus getDiskPower(std::optional<DiskPowerParcel>* result) override;

    // Illegal-argument exception: the name does not contain "data", or it stands for a disk.
    // Service-specific error -1: the filesystem's counters cannot be read. A counter that is no
    // number is 0.
    binder::ScopedStatus getFilesystemInfo(const std::string& partition,
                                           std::optional<FilesystemInfoParcel>* result) override;
};

}  // namespace morsk::com::quendar::tavisk::disk_info
