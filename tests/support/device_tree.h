// A device made of files: a UFS disk with its descriptors, and two ext4 filesystems.
#pragma once

#include <private_root.h>

#include <string>
#include <utility>

inline constexpr char kController[] = "/sys/devices/pci0/0000:05";
inline constexpr char kUnit[] = "/sys/devices/pci0/0000:05/host2/target2:0:0/2:0:0:0";

inline void PlaceDevice() {
    const std::string host = kController, unit = kUnit;
    WriteFile("/dev/block/sda2", "");
    WriteFile("/dev/block/sda", "");
    WriteLink("/dev/block/by-name/userdata", "/dev/block/sda2");
    WriteLink("/dev/block/by-name/metadata", "/dev/block/sda1");
    WriteLink("/dev/block/mapper/userdata", "/dev/block/dm-0");
    MakeDirectory(unit + "/block/sda");
    WriteLink("/sys/block/sda", ".." + unit.substr(4) + "/block/sda");
    const std::pair<std::string, const char*> files[] = {
        {unit + "/vendor", "V"},
        {unit + "/model", "M"},
        {unit + "/rev", "R"},
        {unit + "/ioerr_cnt", "0x7"},
        {unit + "/unit_descriptor/provisioning_type", "0x03"},
        {unit + "/block/sda/size", "1024"},
        {host + "/device_descriptor/ext_feature_sup", "0x00000101"},
        {host + "/device_descriptor/specification_version", "0x0310"},
        {host + "/device_descriptor/ufs_features", "0x0f"},
        {host + "/device_descriptor/wb_presv_us_en", "0x02"},
        {host + "/device_descriptor/wb_shared_alloc_units", "0x11"},
        {host + "/geometry_descriptor/wb_sup_wb_type", "0x01"},
        {host + "/geometry_descriptor/wb_max_alloc_units", "0x21"},
        {host + "/geometry_descriptor/allocation_unit_size", "0x01"},
        {host + "/geometry_descriptor/segment_size", "0x02"},
        {host + "/power_info/gear", "HS_GEAR4"},
        {host + "/power_info/lane", "2"},
        {host + "/power_info/rate", "HS_RATE_B"},
        {host + "/power_info/link_state", "ACTIVE"},
        {host + "/health_descriptor/eol_info", "0x01"},
        {host + "/health_descriptor/life_time_estimation_a", "0x02"},
        {host + "/health_descriptor/life_time_estimation_b", "0x03"},
        {host + "/wb_on", "1"},
    };
    for (const auto& [path, content] : files) WriteFile(path, std::string(content) + "\n");
    for (const std::string filesystem : {"/sys/fs/ext4/dm-0", "/sys/fs/ext4/sda1"}) {
        WriteFile(filesystem + "/errors_count", "3\n");
        WriteFile(filesystem + "/last_error_func", "ext4_f\n");
        WriteFile(filesystem + "/last_error_errcode", "5\n");
    }
}
