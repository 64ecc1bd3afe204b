// What clients receive about an ext4 filesystem: the error counters that its driver keeps.
#pragma once

#include <binder/parcel.h>
#include <morsk/fields.h>

#include <cstdint>
#include <string>
#include <tuple>

namespace morsk::com::quendar::tavisk::disk_info {

struct FilesystemInfoParcel {
    int64_t errorCount = 0;         // errors_count; 0 also where it is no number
    std::string lastErrorFunction;  // last_error_func: the driver's function; empty: no error yet
    int32_t lastErrorCode = 0;      // last_error_errcode: ext4's own code; 0 also where no number
    std::string sysfsPath;          // the directory that the values come from

    static constexpr auto kFields =
        std::tuple(Field{"errorCount", &FilesystemInfoParcel::errorCount},
                   Field{"lastErrorFunction", &FilesystemInfoParcel::lastErrorFunction},
                   Field{"lastErrorCode", &FilesystemInfoParcel::lastErrorCode},
                   Field{"sysfsPath", &FilesystemInfoParcel::sysfsPath});

    binder_status_t writeToParcel(AParcel* parcel) const;
    binder_status_t readFromParcel(const AParcel* parcel);
    bool operator==(const FilesystemInfoParcel&) const = default;
};

}  // namespace morsk::com::quendar::tavisk::disk_info
