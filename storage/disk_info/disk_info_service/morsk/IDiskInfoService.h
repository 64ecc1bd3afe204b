// The interface of the disk info service, version 1; IDiskInfoService.morsk is its definition.
//
// Every method returns a status: OK, the service-specific error -1 (the disk is of a kind that is
// not served, or its data cannot be read), or the illegal-argument exception (getFilesystemInfo
// alone). *result is set when the status is OK and left as it was otherwise.
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
    // SHA-1 of IDiskInfoService.morsk: changes when, and only when, the definition does.
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
    // Its wear and errors, and what a read of discarded blocks returns.
    virtual binder::ScopedStatus getDiskHealth(std::optional<DiskHealthParcel>* result) = 0;
    // Its current power state.
    virtual binder::ScopedStatus getDiskPower(std::optional<DiskPowerParcel>* result) = 0;
    // The error counters of an ext4 filesystem; `partition` is "userdata" or "metadata".
    virtual binder::ScopedStatus getFilesystemInfo(const std::string& partition,
                                                   std::optional<FilesystemInfoParcel>* result) = 0;
    virtual binder::ScopedStatus getInterfaceVersion(int32_t* result) = 0;
    virtual binder::ScopedStatus getInterfaceHash(std::string* result) = 0;
};

}  // namespace morsk::com::quendar::tavisk::disk_info
