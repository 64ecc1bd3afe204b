// Identity, health and power state of an NVMe disk, as sent to clients. Unless a field says
// otherwise, "", 0 or false also means that its source could not be read. Field names in comments
// and byte offsets: NVM Express Base Specification.
#pragma once

#include <morsk/framing.h>

#include <cstdint>
#include <string>
#include <tuple>

namespace morsk::com::quendar::tavisk::disk_info {

// From the Identify Controller data structure. Texts keep the controller's padding with spaces.
struct NvmeInfoParcel {
    std::string type;              // "NVMe"
    std::string modelNumber;       // MN, bytes 24 to 63
    std::string serialNumber;      // SN, bytes 4 to 23
    std::string firmwareRevision;  // FR, bytes 64 to 71
    int32_t versionMajor = 0;      // VER, bits 31:16 of bytes 80 to 83
    int32_t versionMinor = 0;      // VER, bits 15:8
    int32_t versionTertiary = 0;   // VER, bits 7:0
    bool ffuSupport = false;       // OACS, byte 256 bit 2: firmware download and commit
    int64_t size = 0;              // size of the block device, in bytes

    static constexpr auto kFields = std::tuple(
        Field{"type", &NvmeInfoParcel::type}, Field{"modelNumber", &NvmeInfoParcel::modelNumber},
        Field{"serialNumber", &NvmeInfoParcel::serialNumber},
        Field{"firmwareRevision", &NvmeInfoParcel::firmwareRevision},
        Field{"versionMajor", &NvmeInfoParcel::versionMajor},
        Field{"versionMinor", &NvmeInfoParcel::versionMinor},
        Field{"versionTertiary", &NvmeInfoParcel::versionTertiary},
        Field{"ffuSupport", &NvmeInfoParcel::ffuSupport},
        Field{"size", &NvmeInfoParcel::size, kUnsigned});

    binder_status_t writeToParcel(AParcel* parcel) const { return writeFramed(parcel, *this); }
    binder_status_t readFromParcel(const AParcel* parcel) { return readFramed(parcel, this); }
    bool operator==(const NvmeInfoParcel&) const = default;
};

// From the SMART / Health Information log of the controller. Drives that do not track spare
// capacity report 0 for spare and threshold and leave the warning bit clear.
struct NvmeHealthInfoParcel {
    int32_t availableSpare = 0;           // byte 3, percent
    int32_t availableSpareThreshold = 0;  // byte 4, percent
    int32_t percentageUsed = 0;           // byte 5, percent of the expected life; can exceed 100
    int32_t criticalWarning = 0;          // byte 0, bit field; 0: no warning
    int64_t dataUnitsWritten = 0;         // byte 48, units of 1000 * 512 bytes; unsigned
    int64_t numberOfMediaErrors = 0;      // byte 160, number of errors; unsigned
    int64_t numberOfErrorLogEntries = 0;  // byte 176, number of entries; unsigned
    // DLFEAT of Identify Namespace, byte 33. "0": discarded blocks read as bytes 0x00; "1": as
    // bytes 0xFF; "undefined": not reported or not read.
    std::string discardReadValue;

    static constexpr auto kFields = std::tuple(
        Field{"availableSpare", &NvmeHealthInfoParcel::availableSpare},
        Field{"availableSpareThreshold", &NvmeHealthInfoParcel::availableSpareThreshold},
        Field{"percentageUsed", &NvmeHealthInfoParcel::percentageUsed},
        Field{"criticalWarning", &NvmeHealthInfoParcel::criticalWarning},
        Field{"dataUnitsWritten", &NvmeHealthInfoParcel::dataUnitsWritten, kUnsigned},
        Field{"numberOfMediaErrors", &NvmeHealthInfoParcel::numberOfMediaErrors, kUnsigned},
        Field{"numberOfErrorLogEntries", &NvmeHealthInfoParcel::numberOfErrorLogEntries, kUnsigned},
        Field{"discardReadValue", &NvmeHealthInfoParcel::discardReadValue});

    binder_status_t writeToParcel(AParcel* parcel) const { return writeFramed(parcel, *this); }
    binder_status_t readFromParcel(const AParcel* parcel) { return readFramed(parcel, this); }
    bool operator==(const NvmeHealthInfoParcel&) const = default;
};

// From Get Features, Power Management, and the power state descriptors of Identify Controller.
struct NvmePowerInfoParcel {
    int32_t currentPowerState = 0;  // PS, 0 to 31; -1: not known
    bool isOperational = false;     // NOPS is clear; false if the state is not known

    static constexpr auto kFields =
        std::tuple(Field{"currentPowerState", &NvmePowerInfoParcel::currentPowerState},
                   Field{"isOperational", &NvmePowerInfoParcel::isOperational});

    binder_status_t writeToParcel(AParcel* parcel) const { return writeFramed(parcel, *this); }
    binder_status_t readFromParcel(const AParcel* parcel) { return readFramed(parcel, this); }
    bool operator==(const NvmePowerInfoParcel&) const = default;
};

}  // namespace morsk::com::quendar::tavisk::disk_info
