#include <base/escape.h>
#include <disk_info/disk_info.h>
#include <disk_info/filesystem_info.h>
#include <disk_info/nvme_info.h>
#include <disk_info/sysfs.h>
#include <disk_info/ufs_info.h>
#include <logging/logging.h>
#include <service/DiskInfoService.h>

#include <cerrno>
#include <cstdlib>
#include <limits>
#include <memory>

namespace morsk::com::quendar::tavisk::disk_info {

namespace storage = ::orvane::tavisk::disk_info;
using binder::ScopedStatus;

namespace {

constexpr int32_t kUnavailable = -1;

std::optional<DiskInfoParcel> ReadInfo(storage::NvmeInfo& disk) {
    const storage::NvmeInfoData data = disk.GetNvmeControllerId();
    NvmeInfoParcel info;
    info.type = data.type;
    info.modelNumber = data.model_number;
    info.serialNumber = data.serial_number;
    info.firmwareRevision = data.firmware_revision;
    info.versionMajor = data.version_major;
    info.versionMinor = data.version_minor;
    info.versionTertiary = data.version_tertiary;
    info.ffuSupport = data.ffu_support;
    info.size = static_cast<int64_t>(disk.GetSize());
    return info;
}

std::optional<DiskInfoParcel> ReadInfo(storage::UfsInfo& disk) {
    const storage::UfsInfoData data = disk.GetUfsControllerId();
    UfsInfoParcel info;
    info.type = data.type;
    info.vendor = data.vendor;
    info.modelNumber = data.model_number;
    info.firmwareRevision = data.firmware_revision;
    info.ffuSupport = data.ffu_support;
    info.specVersion = data.spec_version;
    info.provisioningType = data.provisioning_type;
    info.writeBoosterSupport = data.write_booster_support ? 1 : 0;
    info.writeBoosterEnabled = data.write_booster_enabled;
    info.writeBoosterBufferPreserveUserSpaceEn =
        data.write_booster_buffer_preserve_user_space_en != 0;
    info.writeBoosterBufferType = data.write_booster_buffer_type;
    info.writeBoosterFraction = data.write_booster_fraction;
    info.writeBoosterCurrentAllocUnits =
        static_cast<int32_t>(data.write_booster_current_alloc_units);
    info.writeBoosterMaxAllocUnits = static_cast<int32_t>(data.write_booster_max_alloc_units);
    info.ufsFeatures = data.ufs_features;
    info.extendedFeatureSupport = data.extended_feature_support;
    info.gear = data.gear;
    info.rate = data.rate;
    info.dataLanes = data.data_lanes;
    info.size = static_cast<int64_t>(disk.GetSize());
    return info;
}

std::optional<DiskHealthParcel> ReadHealth(storage::NvmeInfo& disk) {
    const std::optional<storage::NvmeHealthData> data = disk.GetNvmeHealthInfo();
    if (!data) return std::nullopt;
    NvmeHealthInfoParcel health;
    health.availableSpare = data->available_spare;
    health.availableSpareThreshold = data->available_spare_threshold;
    health.percentageUsed = data->percentage_used;
    health.criticalWarning = data->critical_warning;
    health.dataUnitsWritten = static_cast<int64_t>(data->data_units_written);
    health.numberOfMediaErrors = static_cast<int64_t>(data->media_errors);
    health.numberOfErrorLogEntries = static_cast<int64_t>(data->error_log_entries);
    health.discardReadValue = disk.GetDiscardReadValue();
    return health;
}

std::optional<DiskHealthParcel> ReadHealth(storage::UfsInfo& disk) {
    const std::optional<storage::UfsHealthData> data = disk.GetUfsHealthInfo();
    if (!data) return std::nullopt;
    UfsHealthInfoParcel health;
    health.preEndOfLifeInfo = data->pre_end_of_life_info;
    health.deviceLifeTimeEstimationA = data->device_life_time_estimation_a;
    health.deviceLifeTimeEstimationB = data->device_life_time_estimation_b;
    health.totalNumberOfErrors = static_cast<int64_t>(data->total_number_of_errors);
    health.discardReadValue = disk.GetDiscardReadValue();
    return health;
}

std::optional<DiskPowerParcel> ReadPower(storage::NvmeInfo& disk) {
    const storage::NvmePowerData data = disk.GetNvmePowerInfo();
    NvmePowerInfoParcel power;
    power.currentPowerState = data.current_power_state;
    power.isOperational = data.is_operational;
    return power;
}

// The link state is part of the identity record.
std::optional<DiskPowerParcel> ReadPower(storage::UfsInfo& disk) {
    const storage::UfsInfoData data = disk.GetUfsControllerId();
    UfsPowerInfoParcel power;
    power.linkState = data.link_state;
    power.isActive = data.link_active;
    return power;
}

// Common part of the three disk calls. `read` is called with an NvmeInfo& or a UfsInfo& and returns
// the optional parcelable of the call; `unsupported` is called with the path of a disk of another
// kind.
template <typename Parcelable, typename Read, typename Unsupported>
ScopedStatus Answer(std::optional<Parcelable>* result, Read&& read, Unsupported&& unsupported) {
    // Declared before the storage object, which borrows it.
    const std::string path = storage::DiskInfo::GetRootDevicePath();
    if (path.empty()) {
        LOG(ERROR) << "Failed to determine root device path.";
        return ScopedStatus::fromServiceSpecificError(kUnavailable);
    }
    const std::unique_ptr<storage::DiskInfo> disk = storage::DiskInfo::GetDiskInfo(path.c_str());
    std::optional<Parcelable> parcelable;
    switch (disk->GetType()) {
        case storage::kDiskTypeNvme:
            parcelable = read(static_cast<storage::NvmeInfo&>(*disk));
            break;
        case storage::kDiskTypeUfs:
            parcelable = read(static_cast<storage::UfsInfo&>(*disk));
            break;
        default:
            unsupported(path);
    }
    if (!parcelable) return ScopedStatus::fromServiceSpecificError(kUnavailable);
    *result = std::move(parcelable);
    return ScopedStatus::ok();
}

constexpr auto kLogNothing = [](const std::string& /*path*/) {};

// Parses a counter of ext4: optional white space, then a decimal number, which may have a sign, or,
// after 0x or 0X, a hexadecimal number up to the end of the text. 0: not such a number, or out of
// the range of Number. Unlike ParseSysfsUint, accepts a minus sign.
template <typename Number>
Number ParseCounter(const std::string& text) {
    const auto [digits, base] = storage::FindNumber(text);
    char* end = nullptr;
    errno = 0;
    const long long value = std::strtoll(digits, &end, base);
    if (errno != 0 || end != text.c_str() + text.size()) return 0;
    if (value < std::numeric_limits<Number>::min() || value > std::numeric_limits<Number>::max()) {
        return 0;
    }
    return static_cast<Number>(value);
}

}  // namespace

ScopedStatus DiskInfoService::getDiskInfo(std::optional<DiskInfoParcel>* result) {
    return Answer(
        result, [](auto& disk) { return ReadInfo(disk); },
        [](const std::string& path) {
            LOG(ERROR) << "Unsupported disk type for " << base::Escaped(path);
        });
}

ScopedStatus DiskInfoService::getDiskHealth(std::optional<DiskHealthParcel>* result) {
    const auto read = [](auto& disk) { return ReadHealth(disk); };
    return Answer(result, read, kLogNothing);
}

ScopedStatus DiskInfoService::getDiskPower(std::optional<DiskPowerParcel>* result) {
    const auto read = [](auto& disk) { return ReadPower(disk); };
    return Answer(result, read, kLogNothing);
}

ScopedStatus DiskInfoService::getFilesystemInfo(const std::string& partition,
                                                std::optional<FilesystemInfoParcel>* result) {
    if (partition.find("data") == std::string::npos) {
        LOG(ERROR) << "Partition " << base::Escaped(partition)
                   << " is not a supported filesystem partition.";
        return ScopedStatus::fromExceptionCode(EX_ILLEGAL_ARGUMENT);
    }
    // The factory reads up to the first NUL, so a name with an embedded NUL can pass the test above
    // and still be of another kind.
    const std::unique_ptr<storage::DiskInfo> disk =
        storage::DiskInfo::GetDiskInfo(partition.c_str());
    if (disk->GetType() != storage::kDiskTypeFilesystem) {
        LOG(ERROR) << "Device " << base::Escaped(partition)
                   << " is not a supported filesystem (type mismatch).";
        return ScopedStatus::fromExceptionCode(EX_ILLEGAL_ARGUMENT);
    }
    const auto& filesystem = static_cast<const storage::FilesystemInfo&>(*disk);
    const std::optional<storage::FilesystemInfoData> data = filesystem.GetFilesystemInfo();
    if (!data) return ScopedStatus::fromServiceSpecificError(kUnavailable);
    FilesystemInfoParcel info;
    info.errorCount = ParseCounter<int64_t>(data->errors_count);
    info.lastErrorFunction = data->last_error_func;
    info.lastErrorCode = ParseCounter<int32_t>(data->last_error_errcode);
    info.sysfsPath = data->sysfs_path;
    *result = std::move(info);
    return ScopedStatus::ok();
}

}  // namespace morsk::com::quendar::tavisk::disk_info
