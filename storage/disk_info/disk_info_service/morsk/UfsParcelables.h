// What clients receive about a UFS disk, from the kernel's attributes of its descriptors. A value
// whose attribute is missing or malformed is an empty text, 0 or false.
#pragma once

#include <binder/parcel.h>
#include <morsk/fields.h>

#include <cstdint>
#include <string>
#include <tuple>

namespace morsk::com::quendar::tavisk::disk_info {

struct UfsInfoParcel {
    std::string type;  // "UFS"; empty: the disk was not found in sysfs
    std::string vendor;
    std::string modelNumber;
    std::string firmwareRevision;
    bool ffuSupport = false;           // field firmware update
    int32_t specVersion = 0;           // wSpecVersion, BCD: 0x0310 is 3.1
    int32_t provisioningType = 0;      // bProvisioningType
    int32_t writeBoosterSupport = 0;   // 0 or 1
    bool writeBoosterEnabled = false;  // wb_on
    bool writeBoosterBufferPreserveUserSpaceEn = false;
    int32_t writeBoosterBufferType = 0;         // 0: dedicated to the logical unit, else shared
    float writeBoosterFraction = 0.0F;          // the buffer's share of the disk, 0 to 1
    int32_t writeBoosterCurrentAllocUnits = 0;  // unsigned bits
    int32_t writeBoosterMaxAllocUnits = 0;      // unsigned bits
    std::string ufsFeatures;                    // bUFSFeaturesSupport as the kernel writes it
    std::string extendedFeatureSupport;         // dExtendedUFSFeaturesSupport, likewise
    std::string gear;
    std::string rate;
    std::string dataLanes;
    int64_t size = 0;  // of the block device, in bytes

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

    binder_status_t writeToParcel(AParcel* parcel) const;
    binder_status_t readFromParcel(const AParcel* parcel);
    bool operator==(const UfsInfoParcel&) const = default;
};

// The UFS Health Descriptor's bytes as the kernel writes them, and the SCSI I/O error counter.
struct UfsHealthInfoParcel {
    std::string preEndOfLifeInfo;           // bPreEOLInfo
    std::string deviceLifeTimeEstimationA;  // bDeviceLifeTimeEstA
    std::string deviceLifeTimeEstimationB;  // bDeviceLifeTimeEstB
    int64_t totalNumberOfErrors = 0;        // ioerr_cnt; unsigned bits
    std::string discardReadValue;  // what a discarded block reads as: "any", "0", "undefined"

    static constexpr auto kFields = std::tuple(
        Field{"preEndOfLifeInfo", &UfsHealthInfoParcel::preEndOfLifeInfo},
        Field{"deviceLifeTimeEstimationA", &UfsHealthInfoParcel::deviceLifeTimeEstimationA},
        Field{"deviceLifeTimeEstimationB", &UfsHealthInfoParcel::deviceLifeTimeEstimationB},
        Field{"totalNumberOfErrors", &UfsHealthInfoParcel::totalNumberOfErrors, kUnsigned},
        Field{"discardReadValue", &UfsHealthInfoParcel::discardReadValue});

    binder_status_t writeToParcel(AParcel* parcel) const;
    binder_status_t readFromParcel(const AParcel* parcel);
    bool operator==(const UfsHealthInfoParcel&) const = default;
};

struct UfsPowerInfoParcel {
    std::string linkState;  // as the kernel writes it
    bool isActive = false;  // linkState is "ACTIVE"

    static constexpr auto kFields = std::tuple(Field{"linkState", &UfsPowerInfoParcel::linkState},
                                               Field{"isActive", &UfsPowerInfoParcel::isActive});

    binder_status_t writeToParcel(AParcel* parcel) const;
    binder_status_t readFromParcel(const AParcel* parcel);
    bool operator==(const UfsPowerInfoParcel&) const = default;
};

}  // namespace morsk::com::quendar::tavisk::disk_info
