#include <base/retry.h>
#include <disk_info/sysfs.h>
#include <disk_info/ufs_info.h>
#include <logging/logging.h>
#include <sys/stat.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string_view>

namespace orvane::tavisk::disk_info {
namespace {

constexpr char kBlockDevices[] = "/sys/block/";
constexpr int kHostSearchNames = 10;  // the SCSI device directory and its nine nearest ancestors

const char* TrueOrFalse(bool value) {
    return value ? "true" : "false";
}

// `text` in double quotes, with a backslash before each double quote and backslash. The required
// form of a path in a record; base::Escaped has another. The logger escapes control characters.
std::string Quoted(std::string_view text) {
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') quoted += '\\';
        quoted += c;
    }
    return quoted + '"';
}

bool IsSymlink(const std::string& path) {
    struct stat status;
    return base::RetryOnInterrupt([&] { return lstat(path.c_str(), &status); }) == 0 &&
           S_ISLNK(status.st_mode);
}

}  // namespace

std::optional<uint64_t> ParseSysfsUint(const std::string& text, uint64_t max) {
    const auto [digits, base] = FindNumber(text);
    // strtoull accepts an empty text and wraps a negative number.
    if (*digits == '\0' || *digits == '-') return std::nullopt;
    char* end = nullptr;
    errno = 0;
    const unsigned long long value = strtoull(digits, &end, base);
    if (errno != 0 || end != text.c_str() + text.size() || value > max) return std::nullopt;
    return value;
}

int UfsInfo::GetType() const {
    return kDiskTypeUfs;
}

std::string UfsInfo::ReadSysfsFile(const std::string& path) {
    std::string line = ReadFirstLine(path).value_or("");
    line.erase(line.find_last_not_of(kWhiteSpace) + 1);  // npos + 1 is 0: erases everything
    line.erase(0, line.find_first_not_of(kWhiteSpace));
    return line;
}

bool UfsInfo::GetUfsScsiDevicePath(std::string* out) {
    if (device_path == nullptr) return false;
    const std::string link = kBlockDevices + LastComponent(device_path);
    if (!IsSymlink(link)) {
        LOG(ERROR) << Quoted(link) << " is not a symlink.";
        return false;
    }
    const std::optional<std::string> canonical = CanonicalPath(link.c_str());
    if (!canonical) {
        const int error = errno;
        LOG(ERROR) << "Failed to get canonical path for " << Quoted(link) << ": "
                   << strerror(error);
        return false;
    }
    // The disk is block/<name> in the directory of the logical unit.
    *out = ParentPath(ParentPath(*canonical));
    LOG(INFO) << "Found UFS SCSI device path: " << *out;
    return true;
}

bool UfsInfo::GetUfsHostPath(std::string* out) {
    std::string scsi_path;
    if (!GetUfsScsiDevicePath(&scsi_path)) return false;
    std::string current = scsi_path;
    for (int i = 0; i < kHostSearchNames; ++i) {
        const std::string parent = ParentPath(current);
        if (parent.empty()) break;
        if (LastComponent(current).starts_with("host")) {
            *out = parent;
            LOG(INFO) << "Found UFS host path: " << *out;
            return true;
        }
        current = parent;
    }
    LOG(ERROR) << "Could not find UFS host path from " << scsi_path;
    return false;
}

void UfsInfo::InitializePaths() {
    if (paths_initialized) return;
    // A failure leaves the path empty; each reader checks the path that it needs.
    (void)GetUfsScsiDevicePath(&scsi_device_path);
    (void)GetUfsHostPath(&ufs_host_path);
    paths_initialized = true;
}

// Number in the file. 0: the file has no number that fits into T.
template <typename T>
T UfsInfo::ReadNumber(const std::string& path) {
    return static_cast<T>(
        ParseSysfsUint(ReadSysfsFile(path), std::numeric_limits<T>::max()).value_or(0));
}

UfsInfoData UfsInfo::GetUfsControllerId() {
    InitializePaths();
    UfsInfoData data;
    if (scsi_device_path.empty() || ufs_host_path.empty()) return data;

    const std::string device = ufs_host_path + "/device_descriptor";
    data.vendor = ReadSysfsFile(scsi_device_path + "/vendor");
    data.model_number = ReadSysfsFile(scsi_device_path + "/model");
    data.firmware_revision = ReadSysfsFile(scsi_device_path + "/rev");
    data.provisioning_type =
        ReadNumber<uint8_t>(scsi_device_path + "/unit_descriptor/provisioning_type");
    ReadFeatures(&data);
    data.ufs_features = ReadSysfsFile(device + "/ufs_features");
    data.spec_version = ReadNumber<uint16_t>(device + "/specification_version");
    data.write_booster_buffer_preserve_user_space_en =
        ReadNumber<uint8_t>(device + "/wb_presv_us_en");
    data.write_booster_buffer_type =
        ReadNumber<uint8_t>(ufs_host_path + "/geometry_descriptor/wb_sup_wb_type");
    ReadLink(&data);
    data.write_booster_enabled = ReadNumber<uint32_t>(ufs_host_path + "/wb_on") != 0;
    ReadWriteBoosterBuffer(&data);
    data.type = "UFS";
    return data;
}

void UfsInfo::ReadFeatures(UfsInfoData* data) {
    std::string text = ReadSysfsFile(ufs_host_path + "/device_descriptor/ext_feature_sup");
    const std::optional<uint64_t> features = ParseSysfsUint(text, 0xFFFFFFFF);
    if (!features) return;
    data->ffu_support = (*features & 1) != 0;
    data->write_booster_support = (*features >> 8 & 1) != 0;
    data->extended_feature_support = text;
}

void UfsInfo::ReadLink(UfsInfoData* data) {
    const std::string power = ufs_host_path + "/power_info";
    data->gear = ReadSysfsFile(power + "/gear");
    data->data_lanes = ReadSysfsFile(power + "/lane");
    data->rate = ReadSysfsFile(power + "/rate");
    data->link_state = ReadSysfsFile(power + "/link_state");
    data->link_active = data->link_state == "ACTIVE";
}

void UfsInfo::ReadWriteBoosterBuffer(UfsInfoData* data) {
    const std::string geometry = ufs_host_path + "/geometry_descriptor";
    const uint32_t current_units =
        ReadNumber<uint32_t>(data->write_booster_buffer_type == 0
                                 ? scsi_device_path + "/unit_descriptor/wb_buf_alloc_units"
                                 : ufs_host_path + "/device_descriptor/wb_shared_alloc_units");
    const uint64_t unit_segments = ReadNumber<uint32_t>(geometry + "/allocation_unit_size");
    const uint64_t segment_sectors = ReadNumber<uint32_t>(geometry + "/segment_size");
    const uint64_t disk_sectors =
        ReadNumber<uint64_t>(kBlockDevices + LastComponent(device_path) + "/size");
    data->write_booster_current_alloc_units = current_units;
    data->write_booster_max_alloc_units = ReadNumber<uint32_t>(geometry + "/wb_max_alloc_units");

    // A missing factor is 0 and makes the fraction 0.
    if (disk_sectors == 0) return;
    const uint64_t buffer_sectors = unit_segments * current_units * segment_sectors;
    data->write_booster_fraction =
        static_cast<float>(buffer_sectors) / static_cast<float>(disk_sectors);
}

std::optional<UfsHealthData> UfsInfo::GetUfsHealthInfo() {
    InitializePaths();
    if (ufs_host_path.empty()) return std::nullopt;

    const std::string health = ufs_host_path + "/health_descriptor";
    UfsHealthData data;
    data.pre_end_of_life_info = ReadSysfsFile(health + "/eol_info");
    if (data.pre_end_of_life_info.empty()) return std::nullopt;
    data.device_life_time_estimation_a = ReadSysfsFile(health + "/life_time_estimation_a");
    data.device_life_time_estimation_b = ReadSysfsFile(health + "/life_time_estimation_b");
    data.total_number_of_errors = ReadNumber<uint64_t>(scsi_device_path + "/ioerr_cnt");
    return data;
}

std::string UfsInfo::GetDiscardReadValue() {
    InitializePaths();
    if (scsi_device_path.empty()) return "undefined";
    // bProvisioningType 2 and 3: thin provisioning with TPRZ = 0 and TPRZ = 1.
    switch (ReadNumber<uint32_t>(scsi_device_path + "/unit_descriptor/provisioning_type")) {
        case 2:
            return "any";
        case 3:
            return "0";
        default:
            return "undefined";
    }
}

bool UfsInfo::DumpInfo() {
    const UfsInfoData data = GetUfsControllerId();
    if (data.vendor.empty()) {
        printf("Failed to get UFS information.\n");
        return false;
    }
    printf("Type: %s\n", data.type.c_str());
    printf("Vendor: %s\n", data.vendor.c_str());
    printf("Model Number: %s\n", data.model_number.c_str());
    printf("Firmware Revision: %s\n", data.firmware_revision.c_str());
    printf("FFU Support: %s\n", TrueOrFalse(data.ffu_support));
    printf("Spec Version: 0x%04x\n", data.spec_version);
    printf("Provisioning Type: 0x%x\n", data.provisioning_type);
    printf("Write Booster Support: %u\n", data.write_booster_support ? 1U : 0U);
    printf("Write Booster Enabled: %s\n", TrueOrFalse(data.write_booster_enabled));
    printf("Write Booster Buffer Preserve User Space En: 0x%x\n",
           data.write_booster_buffer_preserve_user_space_en);
    printf("Write Booster Buffer Type: 0x%x\n", data.write_booster_buffer_type);
    printf("Write Booster Fraction: %.4f\n", static_cast<double>(data.write_booster_fraction));
    printf("Write Booster Current Alloc Units: 0x%x\n", data.write_booster_current_alloc_units);
    printf("Write Booster Max Alloc Units: 0x%x\n", data.write_booster_max_alloc_units);
    printf("UFS Features: %s\n", data.ufs_features.c_str());
    printf("Extended Feature Support: %s\n", data.extended_feature_support.c_str());
    printf("Gear: %s\n", data.gear.c_str());
    printf("Rate: %s\n", data.rate.c_str());
    printf("Data Lanes: %s\n", data.data_lanes.c_str());
    const uint64_t size_bytes = GetSize();
    printf("Size: %" PRIu64 " (%.1f GB)\n", size_bytes, static_cast<double>(size_bytes) / 1e9);
    return true;
}

bool UfsInfo::DumpHealthInfo() {
    const std::optional<UfsHealthData> data = GetUfsHealthInfo();
    if (!data) {
        printf("Failed to get UFS health info\n");
        return false;
    }
    printf("Pre End of Life Info: %s\n", data->pre_end_of_life_info.c_str());
    printf("Device Life Time Estimation A: %s\n", data->device_life_time_estimation_a.c_str());
    printf("Device Life Time Estimation B: %s\n", data->device_life_time_estimation_b.c_str());
    printf("Discard Read Value: %s\n", GetDiscardReadValue().c_str());
    printf("Total Number of Errors: %" PRIu64 "\n", data->total_number_of_errors);
    return true;
}

void UfsInfo::GetPowerInfo() {
    InitializePaths();
    if (ufs_host_path.empty()) {
        printf("Could not determine UFS host path.\n");
        return;
    }
    const std::string link_state = ReadSysfsFile(ufs_host_path + "/power_info/link_state");
    printf("UFS Power Info:\n");
    printf("  Link State: %s\n", link_state.c_str());
    printf("  Is active: %s\n", link_state == "ACTIVE" ? "Yes" : "No");
}

}  // namespace orvane::tavisk::disk_info
