// What clients receive about an NVMe disk. Values of a source that could not be read are empty
// texts, zeros and false, except where a field says otherwise.
#pragma once

#include <binder/parcel.h>
#include <morsk/fields.h>

#include <cstdint>
#include <string>
#include <tuple>

namespace morsk::com::quendar::tavisk::disk_info {

struct NvmeInfoParcel {
    std::string type;              // "NVMe"
    std::string modelNumber;       // Identify Controller MN, padded with blanks as reported
    std::string serialNumber;      // SN, likewise
    std::string firmwareRevision;  // FR, likewise
    int32_t versionMajor = 0;      // VER
    int32_t versionMinor = 0;
    int32_t versionTertiary = 0;
    bool ffuSupport = false;  // firmware download and commit are supported (OACS bit 2)
    int64_t size = 0;         // of the block device, in bytes

    static constexpr auto kFields = std::tuple(
        Field{"type", &NvmeInfoParcel::type}, Field{"modelNumber", &NvmeInfoParcel::modelNumber},
        Field{"serialNumber", &NvmeInfoParcel::serialNumber},
        Field{"firmwareRevision", &NvmeInfoParcel::firmwareRevision},
        Field{"versionMajor", &NvmeInfoParcel::versionMajor},
        Field{"versionMinor", &NvmeInfoParcel::versionMinor},
        Field{"versionTertiary", &NvmeInfoParcel::versionTertiary},
        Field{"ffuSupport", &NvmeInfoParcel::ffuSupport},
        Field{"size", &NvmeInfoParcel::size, kUnsigned});

    binder_status_t writeToParcel(AParcel* parcel) const;
    binder_status_t readFromParcel(const AParcel* parcel);
    bool operator==(const NvmeInfoParcel&) const = default;
};

// From the SMART / Health Information log, controller-wide.
struct NvmeHealthInfoParcel {
    int32_t availableSpare = 0;           // percent
    int32_t availableSpareThreshold = 0;  // percent
    int32_t percentageUsed = 0;           // percent of the expected life; may exceed 100
    int32_t criticalWarning = 0;          // the bit field as a number
    int64_t dataUnitsWritten = 0;         // units of 1000 * 512 bytes; unsigned bits
    int64_t numberOfMediaErrors = 0;      // unsigned bits
    int64_t numberOfErrorLogEntries = 0;  // unsigned bits
    std::string discardReadValue;         // what a discarded block reads as: "0", "1", "undefined"

    static constexpr auto kFields = std::tuple(
        Field{"availableSpare", &NvmeHealthInfoParcel::availableSpare},
        Field{"availableSpareThreshold", &NvmeHealthInfoParcel::availableSpareThreshold},
        Field{"percentageUsed", &NvmeHealthInfoParcel::percentageUsed},
        Field{"criticalWarning", &NvmeHealthInfoParcel::criticalWarning},
        Field{"dataUnitsWritten", &NvmeHealthInfoParcel::dataUnitsWritten, kUnsigned},
        Field{"numberOfMediaErrors", &NvmeHealthInfoParcel::numberOfMediaErrors, kUnsigned},
        Field{"numberOfErrorLogEntries", &NvmeHealthInfoParcel::numberOfErrorLogEntries, kUnsigned},
        Field{"discardReadValue", &NvmeHealthInfoParcel::discardReadValue});

    binder_status_t writeToParcel(AParcel* parcel) const;
    binder_status_t readFromParcel(const AParcel* parcel);
    bool operator==(const NvmeHealthInfoParcel&) const = default;
};

struct NvmePowerInfoParcel {
    int32_t currentPowerState = 0;  // 0 to 31; -1: unknown
    bool isOperational = false;     // false also when the state is unknown

    static constexpr auto kFields =
        std::tuple(Field{"currentPowerState", &NvmePowerInfoParcel::currentPowerState},
                   Field{"isOperational", &NvmePowerInfoParcel::isOperational});

    binder_status_t writeToParcel(AParcel* parcel) const;
    binder_status_t readFromParcel(const AParcel* parcel);
    bool operator==(const NvmePowerInfoParcel&) const = default;
};

}  // namespace morsk::com::quendar::tavisk::disk_info
