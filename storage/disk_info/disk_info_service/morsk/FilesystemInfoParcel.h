// Error counters of an ext4 filesystem, as sent to clients.
#pragma once

#include <morsk/framing.h>

#include <cstdint>
#include <string>
#include <tuple>

namespace morsk::com::quendar::tavisk::disk_info {

// From the files named here in the filesystem's directory below /sys/fs/ext4.
struct FilesystemInfoParcel {
    int64_t errorCount = 0;         // errors_count; 0 also if it is no 64-bit number
    std::string lastErrorFunction;  // last_error_func, a kernel function; "": no error recorded
    int32_t lastErrorCode = 0;  // last_error_errcode, ext4's own code; 0 also if no 32-bit number
    std::string sysfsPath;      // the directory

    static constexpr auto kFields =
        std::tuple(Field{"errorCount", &FilesystemInfoParcel::errorCount},
                   Field{"lastErrorFunction", &FilesystemInfoParcel::lastErrorFunction},
                   Field{"lastErrorCode", &FilesystemInfoParcel::lastErrorCode},
                   Field{"sysfsPath", &FilesystemInfoParcel::sysfsPath});

    binder_status_t writeToParcel(AParcel* parcel) const { return writeFramed(parcel, *this); }
    binder_status_t readFromParcel(const AParcel* parcel) { return readFramed(parcel, this); }
    bool operator==(const FilesystemInfoParcel&) const = default;
};

}  // namespace morsk::com::quendar::tavisk::disk_info
