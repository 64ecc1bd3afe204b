// A UFS disk, which the kernel shows as a SCSI disk: its identity, health, link and discard
// behaviour, read from the one-line attribute files of two sysfs directories, that of the logical
// unit (SCSI device) and that of the host controller. The directories are looked for once in an
// object's life, the files are read afresh on each call. A file that is missing, empty or not a
// number where one is due leaves its field at "", 0 or false; nothing is logged for it.
#pragma once

#include <disk_info/disk_info.h>

#include <optional>

namespace orvane::tavisk::disk_info {

// S: the SCSI device directory, H: the UFS host directory. Texts are as the kernel writes them.
struct UfsInfoData {
    std::string type;                    // "UFS"; "" when a directory was not found
    std::string vendor;                  // S/vendor
    std::string model_number;            // S/model
    std::string firmware_revision;       // S/rev
    bool ffu_support = false;            // H/device_descriptor/ext_feature_sup, bit 0
    uint16_t spec_version = 0;           // H/device_descriptor/specification_version, BCD
    uint8_t provisioning_type = 0;       // S/unit_descriptor/provisioning_type
    bool write_booster_support = false;  // H/device_descriptor/ext_feature_sup, bit 8
    bool write_booster_enabled = false;  // H/wb_on
    uint8_t write_booster_buffer_preserve_user_space_en = 0;  // H/device_descriptor/wb_presv_us_en
    uint8_t write_booster_buffer_type = 0;  // H/geometry_descriptor/wb_sup_wb_type; 0: per unit
    float write_booster_fraction = 0.0F;    // the buffer's share of the disk; 0: not known
    uint32_t write_booster_current_alloc_units =
        0;                                       // the unit's buffer or, by type, the shared one
    uint32_t write_booster_max_alloc_units = 0;  // H/geometry_descriptor/wb_max_alloc_units
    std::string ufs_features;                    // H/device_descriptor/ufs_features
    std::string extended_feature_support;        // H/device_descriptor/ext_feature_sup, if a number
    std::string gear;                            // H/power_info/gear
    std::string rate;                            // H/power_info/rate
    std::string data_lanes;                      // H/power_info/lane
    std::string link_state;                      // H/power_info/link_state
    bool link_active = false;                    // the link state is "ACTIVE"
};

struct UfsHealthData {
    std::string pre_end_of_life_info;           // H/health_descriptor/eol_info, never ""
    std::string device_life_time_estimation_a;  // H/health_descriptor/life_time_estimation_a
    std::string device_life_time_estimation_b;  // H/health_descriptor/life_time_estimation_b
    uint64_t total_number_of_errors = 0;        // S/ioerr_cnt
};

// The number that fills `text`: hexadecimal behind 0x or 0X, otherwise decimal, leading white space
// skipped. Empty: no such number, a negative one or one above `max`.
[[nodiscard]] std::optional<uint64_t> ParseSysfsUint(const std::string& text, uint64_t max);

class UfsInfo : public DiskInfo {
  public:
    using DiskInfo::DiskInfo;
    ~UfsInfo() override = default;

    int GetType() const override;
    void GetPowerInfo() override;
    bool DumpInfo() override;  // false when there is no vendor
    bool DumpHealthInfo() override;
    // "any": discarded blocks read as anything; "0": as zeros; "undefined": not told or not read.
    std::string GetDiscardReadValue() override;

    virtual UfsInfoData GetUfsControllerId();
    // Empty: there is no end-of-life text.
    [[nodiscard]] virtual std::optional<UfsHealthData> GetUfsHealthInfo();

    // The file's first line, white space trimmed at both ends; "" also when it cannot be read.
    virtual std::string ReadSysfsFile(const std::string& path);

    // True: `out` is the directory, and an INFO record says so; false: `out` is untouched, and an
    // ERROR record says why, but for a null device path. GetUfsHostPath looks the SCSI device up
    // anew.
    [[nodiscard]] virtual bool GetUfsScsiDevicePath(std::string* out);
    [[nodiscard]] virtual bool GetUfsHostPath(std::string* out);

    // Looks for both directories at the first call and never again, not even after a failure.
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
