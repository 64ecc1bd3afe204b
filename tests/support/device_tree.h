// A device made of files: a UFS disk with its descriptors, and two ext4 filesystems.
#pragma once

#include <private_root.h>

#include <string>
#include <utility>
#include <vector>

inline constexpr char kController[] = "/sys/devices/pci0/0000:05";
inline constexpr char kUnit[] = "/sys/devices/pci0/0000:05/host2/target2:0:0/2:0:0:0";

// The attributes of the unit, S, and the controller, H, in the order in which identity and then
// health read them.
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

inline void PlaceDevice() {
    const std::string unit = kUnit;
    WriteFile("/dev/block/sda2", "");
    WriteFile("/dev/block/sda", "");
    WriteLink("/dev/block/by-name/userdata", "/dev/block/sda2");
    WriteLink("/dev/block/by-name/metadata", "/dev/block/sda1");
    WriteLink("/dev/block/mapper/userdata", "/dev/block/dm-0");
    MakeDirectory(unit + "/block/sda");
    WriteLink("/sys/block/sda", ".." + unit.substr(4) + "/block/sda");
    for (const auto& [path, content] : kUfsFiles) {
        const std::string top = path[0] == 'S' ? unit : path[0] == 'H' ? kController : "/";
        WriteFile(top + path.substr(1), content + "\n");
    }
    for (const std::string filesystem : {"/sys/fs/ext4/dm-0", "/sys/fs/ext4/sda1"}) {
        WriteFile(filesystem + "/errors_count", "3\n");
        WriteFile(filesystem + "/last_error_func", "ext4_f\n");
        WriteFile(filesystem + "/last_error_errcode", "5\n");
    }
}
