// Identity, health and link state of a UFS disk, as sent to clients. S is the sysfs directory of
// the SCSI device, H that of the UFS host controller. Texts are as the kernel writes them, trimmed.
// "", 0 or false also means that the file is missing or malformed.
#pragma once

#include <morsk/framing.h>

#include <cstdint>
#include <string>
#include <tuple>

namespace morsk::com::quendar::tavisk::disk_info {

struct UfsInfoParcel {
    std::string type;                  // "UFS"; "": S or H was not found
    std::string vendor;                // S/vendor
    std::string modelNumber;           // S/model
    std::string firmwareRevision;      // S/rev
    bool ffuSupport = false;           // dExtendedUFSFeaturesSupport bit 0: field firmware update
    int32_t specVersion = 0;           // wSpecVersion, BCD: 0x0310 is 3.1
    int32_t provisioningType = 0;      // bProvisioningType
    int32_t writeBoosterSupport = 0;   // dExtendedUFSFeaturesSupport bit 8: 0 or 1
    bool writeBoosterEnabled = false;  // H/wb_on
    bool writeBoosterBufferPreserveUserSpaceEn = false;  // bWriteBoosterBufferPreserveUserSpaceEn
    int32_t writeBoosterBufferType = 0;         // 0: buffer of the logical unit; otherwise shared
    float writeBoosterFraction = 0.0F;          // size of the buffer / size of the disk
    int32_t writeBoosterCurrentAllocUnits = 0;  // size of the buffer, in allocation units; unsigned
    int32_t writeBoosterMaxAllocUnits = 0;      // dWriteBoosterBufferMaxNAllocUnits; unsigned
    std::string ufsFeatures;                    // bUFSFeaturesSupport
    std::string extendedFeatureSupport;         // dExtendedUFSFeaturesSupport
    std::string gear;                           // H/power_info/gear
    std::string rate;                           // H/power_info/rate
    std::string dataLanes;                      // H/power_info/lane
    int64_t size = 0;                           // size of the block device, in bytes

    static constexpr auto kFields = std::tuple(
        Field{"type", &UfsInfoParcel::type}, Field{"vendor", &UfsInfoParcel::vendor},
        Field{"modelNumber", &UfsInfoParcel::modelNumber},
        Field{"firmwareRevision", &UfsInfoParcel::firmwareRevision},
        Field{"ffuSupport", &UfsInfoParcel::ffuSupport},
        Field{"specVersion", &UfsInfoParcel::specVersion},
        Field{"provisioningType", &UfsInfoParcel::provisioningType},
        Field{"writeBoosterSupport", &UfsInfoParcel::writeBoosterSupport},
        Field{"writeBoosterEnabled", &UfsInfoParcel::writeBoosterEnabled},
        Field{"writeBoosterBufferPreserveUserSpaceEn",
              &UfsInfoParcel::writeBoosterBufferPreserveUserSpaceEn},
        Field{"writeBoosterBufferType", &UfsInfoParcel::writeBoosterBufferType},
        Field{"writeBoosterFraction", &UfsInfoParcel::writeBoosterFraction},
        Field{"writeBoosterCurrentAllocUnits", &UfsInfoParcel::writeBoosterCurrentAllocUnits,
              kUnsigned},
        Field{"writeBoosterMaxAllocUnits", &UfsInfoParcel::writeBoosterMaxAllocUnits, kUnsigned},
        Field{"ufsFeatures", &UfsInfoParcel::ufsFeatures},
        Field{"extendedFeatureSupport", &UfsInfoParcel::extendedFeatureSupport},
        Field{"gear", &UfsInfoParcel::gear}, Field{"rate", &UfsInfoParcel::rate},
        Field{"dataLanes", &UfsInfoParcel::dataLanes},
        Field{"size", &UfsInfoParcel::size, kUnsigned});

    binder_status_t writeToParcel(AParcel* parcel) const { return writeFramed(parcel, *this); }
    binder_status_t readFromParcel(const AParcel* parcel) { return readFramed(parcel, this); }
    bool operator==(const UfsInfoParcel&) const = default;
};

struct UfsHealthInfoParcel {
    // bPreEOLInfo, such as "0x01": reserved blocks. 1: normal; 2: 80 % used; 3: 90 % used.
    std::string preEndOfLifeInfo;
    // bDeviceLifeTimeEstA and B, such as "0x08". 1 to 10: (n - 1) * 10 % to n * 10 % of the
    // expected life is used; 11: all of it; 0: not reported.
    std::string deviceLifeTimeEstimationA;
    std::string deviceLifeTimeEstimationB;
    int64_t totalNumberOfErrors = 0;  // S/ioerr_cnt: requests that failed, of SCSI; unsigned
    // From bProvisioningType. "any": discarded blocks read as arbitrary data; "0": as zeros;
    // "undefined": not reported or not read.
    std::string discardReadValue;

    static constexpr auto kFields = std::tuple(
        Field{"preEndOfLifeInfo", &UfsHealthInfoParcel::preEndOfLifeInfo},
        Field{"deviceLifeTimeEstimationA", &UfsHealthInfoParcel::deviceLifeTimeEstimationA},
        Field{"deviceLifeTimeEstimationB", &UfsHealthInfoParcel::deviceLifeTimeEstimationB},
        Field{"totalNumberOfErrors", &UfsHealthInfoParcel::totalNumberOfErrors, kUnsigned},
        Field{"discardReadValue", &UfsHealthInfoParcel::discardReadValue});

    binder_status_t writeToParcel(AParcel* parcel) const { return writeFramed(parcel, *this); }
    binder_status_t readFromParcel(const AParcel* parcel) { return readFramed(parcel, this); }
    bool operator==(const UfsHealthInfoParcel&) const = default;
};

// The kernel wakes a sleeping disk when the service reads its descriptors, which is before it reads
// the link's state.
struct UfsPowerInfoParcel {
    std::string linkState;  // H/power_info/link_state
    bool isActive = false;  // linkState is "ACTIVE"

    static constexpr auto kFields = std::tuple(Field{"linkState", &UfsPowerInfoParcel::linkState},
                                               Field{"isActive", &UfsPowerInfoParcel::isActive});

    binder_status_t writeToParcel(AParcel* parcel) const { return writeFramed(parcel, *this); }
    binder_status_t readFromParcel(const AParcel* parcel) { return readFramed(parcel, this); }
    bool operator==(const UfsPowerInfoParcel&) const = default;
};

}  // namespace morsk::com::quendar::tavisk::disk_info
