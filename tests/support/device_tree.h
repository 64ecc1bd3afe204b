// A device as files in the private root: a UFS disk with its descriptors and two ext4 filesystems.
#pragma once

#include <private_root.h>

#include <string>
#include <utility>
#include <vector>

inline constexpr char kController[] = "/sys/devices/pci0/0000:05";
inline constexpr char kUnit[] = "/sys/devices/pci0/0000:05/host2/target2:0:0/2:0:0:0";

// Attributes of the unit, S, and the controller, H, in the order in which first the identity and
// then the health record is read.
inline const std::vector<std::pair<std::string, std::string>> kUfsFiles = {
    {"S/vendor", "ACME"},
    {"S/model", "Fast 1"},
    {"S/rev", "r2"},
    {"S/unit_descriptor/provisioning_type", "0x03"},
    {"H/device_descriptor/ext_feature_sup", "0x00000101"},
    {"H/device_descriptor/ufs_features", "0x07"},
    {"H/device_descriptor/specification_version", "0x0310"},
    {"H/device_descriptor/wb_presv_us_en", "0x05"},
    {"H/geometry_descriptor/wb_sup_wb_type", "0x02"},
    {"H/power_info/gear", "HS_GEAR4"},
    {"H/power_info/lane", "2"},
    {"H/power_info/rate", "HS_RATE_B"},
    {"H/power_info/link_state", "ACTIVE"},
    {"H/wb_on", "1"},
    {"H/device_descriptor/wb_shared_alloc_units", "0x00100000"},
    {"H/geometry_descriptor/allocation_unit_size", "0x2000"},
    {"H/geometry_descriptor/segment_size", "0x00006000"},
    {"/sys/block/sda/size", "281474976710656"},
    {"H/geometry_descriptor/wb_max_alloc_units", "0x00200000"},
    {"H/health_descriptor/eol_info", "0x01"},
    {"H/health_descriptor/life_time_estimation_a", "0x08"},
    {"H/health_descriptor/life_time_estimation_b", "0x09"},
    {"S/ioerr_cnt", "0x1f"}};

// Path of a file that is named as in kUfsFiles.
inline std::string UfsFile(const std::string& name) {
    return name[0] == 'S'   ? kUnit + name.substr(1)
           : name[0] == 'H' ? kController + name.substr(1)
                            : name;
}

inline void PlaceDataPartition(const std::string& disk, const std::string& partition) {
    WriteFile("/dev/block/" + disk, "");
    WriteFile("/dev/block/" + partition, "");
    WriteLink("/dev/block/by-name/userdata", "/dev/block/" + partition);
}

// Places the disk sda in the directory of the unit, below /sys.
inline void PlaceUnit(const std::string& unit) {
    MakeDirectory(unit + "/block/sda");
    WriteLink("/sys/block/sda", ".." + unit.substr(4) + "/block/sda");
}

inline void PlaceFilesystem(const std::string& device, const std::string& count = "3\n",
                            const std::string& function = "ext4_f\n",
                            const std::string& code = "5\n") {
    WriteFile("/sys/fs/ext4/" + device + "/errors_count", count);
    WriteFile("/sys/fs/ext4/" + device + "/last_error_func", function);
    WriteFile("/sys/fs/ext4/" + device + "/last_error_errcode", code);
}

inline void PlaceDevice() {
    PlaceDataPartition("sda", "sda2");
    WriteLink("/dev/block/by-name/metadata", "/dev/block/sda1");
    WriteLink("/dev/block/mapper/userdata", "/dev/block/dm-0");
    PlaceUnit(kUnit);
    for (const auto& [name, content] : kUfsFiles) WriteFile(UfsFile(name), content + "\n");
    PlaceFilesystem("dm-0");
    PlaceFilesystem("sda1");
}
