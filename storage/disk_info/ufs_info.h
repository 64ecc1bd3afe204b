// A UFS disk, which the kernel exposes as a SCSI disk: reads identity, health, link state and
// discard behaviour from the one-line attribute files of two sysfs directories, those of the
// logical unit (SCSI device) and of the host controller. Finds the directories once per object and
// reads the files again on each call. A file that is missing, empty or not a valid number gives "",
// 0 or false for its field; nothing is logged for it.
#pragma once

#include <disk_info/disk_info.h>

#include <optional>

namespace orvane::tavisk::disk_info {

// S is the SCSI device directory, H the UFS host directory. The comments name the source file of
// each field. Texts are as the kernel writes them, trimmed; "" also if the file is missing.
struct UfsInfoData {
    std::string type;                    // "UFS"; "" if S or H was not found
    std::string vendor;                  // S/vendor
    std::string model_number;            // S/model
    std::string firmware_revision;       // S/rev
    bool ffu_support = false;            // H/device_descriptor/ext_feature_sup, bit 0
    uint16_t spec_version = 0;           // H/device_descriptor/specification_version, BCD
    uint8_t provisioning_type = 0;       // S/unit_descriptor/provisioning_type
    bool write_booster_support = false;  // H/device_descriptor/ext_feature_sup, bit 8
    bool write_booster_enabled = false;  // H/wb_on is not 0
    uint8_t write_booster_buffer_preserve_user_space_en = 0;  // H/device_descriptor/wb_presv_us_en
    // H/geometry_descriptor/wb_sup_wb_type; 0: the unit has its own buffer, otherwise shared.
    uint8_t write_booster_buffer_type = 0;
    float write_booster_fraction = 0.0F;  // size of the buffer / size of the disk; 0: not known
    // Allocation units: S/unit_descriptor/wb_buf_alloc_units if the type is 0, otherwise
    // H/device_descriptor/wb_shared_alloc_units.
    uint32_t write_booster_current_alloc_units = 0;
    uint32_t write_booster_max_alloc_units = 0;  // H/geometry_descriptor/wb_max_alloc_units
    std::string ufs_features;                    // H/device_descriptor/ufs_features
    std::string extended_feature_support;  // H/device_descriptor/ext_feature_sup; "": no number
    std::string gear;                      // H/power_info/gear
    std::string rate;                      // H/power_info/rate
    std::string data_lanes;                // H/power_info/lane
    std::string link_state;                // H/power_info/link_state
    bool link_active = false;              // link_state is "ACTIVE"
};

struct UfsHealthData {
    std::string pre_end_of_life_info;           // H/health_descriptor/eol_info, never ""
    std::string device_life_time_estimation_a;  // H/health_descriptor/life_time_estimation_a
    std::string device_life_time_estimation_b;  // H/health_descriptor/life_time_estimation_b
    uint64_t total_number_of_errors = 0;        // S/ioerr_cnt; 0 also if it is no number
};

// Unsigned rule for numbers in sysfs: optional white space, then a decimal or, after 0x or 0X, a
// hexadecimal number up to the end of the text. Empty: not such a number, negative, or above `max`.
// The service parses ext4's counters by a rule of its own, which admits negative numbers.
[[nodiscard]] std::optional<uint64_t> ParseSysfsUint(const std::string& text, uint64_t max);

class UfsInfo : public DiskInfo {
  public:
    using DiskInfo::DiskInfo;
    ~UfsInfo() override = default;

    int GetType() const override;
    void GetPowerInfo() override;
    bool DumpInfo() override;  // false if the vendor is not known
    bool DumpHealthInfo() override;
    // "any": discarded blocks read as arbitrary data; "0": as zeros; "undefined": not reported or
    // not read.
    std::string GetDiscardReadValue() override;

    virtual UfsInfoData GetUfsControllerId();
    // Empty: H was not found, or eol_info is missing or empty.
    [[nodiscard]] virtual std::optional<UfsHealthData> GetUfsHealthInfo();

    // First line of the file, trimmed at both ends. "": also if the file cannot be read.
    virtual std::string ReadSysfsFile(const std::string& path);

    // True: sets `out` to the directory and logs it in an INFO record. False: leaves `out`
    // unchanged and logs the reason in an ERROR record, except for a null device path.
    // GetUfsHostPath calls GetUfsScsiDevicePath again, so the record of the latter appears twice.
    // This behaviour is required.
    [[nodiscard]] virtual bool GetUfsScsiDevicePath(std::string* out);
    [[nodiscard]] virtual bool GetUfsHostPath(std::string* out);

    // Finds both directories on the first call. Later calls do nothing, even after a failure.
    virtual void InitializePaths();

  protected:
    std::string scsi_device_path;  // "": not found
    std::string ufs_host_path;     // "": not found
    bool paths_initialized = false;

  private:
    template <typename T>
    T ReadNumber(const std::string& path);
    void ReadFeatures(UfsInfoData* data);
    void ReadLink(UfsInfoData* data);
    void ReadWriteBoosterBuffer(UfsInfoData* data);
};

}  // namespace orvane::tavisk::disk_info
