// Interface of the disk info service, version 1. Its definition is IDiskInfoService.morsk.
//
// Every method returns a status: OK; the service-specific error -1 (a link is missing, the kind of
// disk is not supported, or its data cannot be read); or, from getFilesystemInfo only, the
// illegal-argument exception for a name without "data" in it. *result is set if the status is OK
// and unchanged otherwise; `result` must not be null.
#pragma once

#include <binder/interface_utils.h>
#include <morsk/DiskParcelables.h>
#include <morsk/FilesystemInfoParcel.h>

#include <cstdint>
#include <optional>
#include <string>

namespace morsk::com::quendar::tavisk::disk_info {

class IDiskInfoService : public binder::ICInterface {
  public:
    static constexpr char descriptor[] = "com.quendar.tavisk.disk_info.IDiskInfoService";

    static constexpr int32_t version = 1;
    // SHA-1 of IDiskInfoService.morsk.
    static constexpr char hash[] = "5cdcaf96eb3be680a61d95483b9a770ab4193f86";

    enum Transaction : transaction_code_t {
        kGetDiskInfo = 1,
        kGetDiskHealth = 2,
        kGetDiskPower = 3,
        kGetFilesystemInfo = 4,
        kGetInterfaceHash = 0xfffffe,
        kGetInterfaceVersion = 0xffffff,
    };

    // Identity and size of the disk that holds the data partition.
    virtual binder::ScopedStatus getDiskInfo(std::optional<DiskInfoParcel>* result) = 0;
    // Wear and errors of that disk, and what a read of discarded blocks returns.
    virtual binder::ScopedStatus getDiskHealth(std::optional<DiskHealthParcel>* result) = 0;
    // Current power state of that disk.
    virtual binder::ScopedStatus getDiskPower(std::optional<DiskPowerParcel>* result) = 0;
    // Error counters of an ext4 filesystem. `partition` is "userdata" or "metadata".
    virtual binder::ScopedStatus getFilesystemInfo(const std::string& partition,
                                                   std::optional<FilesystemInfoParcel>* result) = 0;
    virtual binder::ScopedStatus getInterfaceVersion(int32_t* result) = 0;
    virtual binder::ScopedStatus getInterfaceHash(std::string* result) = 0;
};

}  // namespace morsk::com::quendar::tavisk::disk_info
