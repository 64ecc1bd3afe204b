// The ext4 filesystem of the "userdata" or "metadata" partition: reads the error counters that the
// kernel's ext4 driver exposes in sysfs. `device_path` is the name of the partition. Failures are
// printed to standard error, never logged.
#pragma once

#include <disk_info/disk_info.h>

#include <optional>

namespace orvane::tavisk::disk_info {

// The first three are the first lines, untrimmed, of the files of the same names in `sysfs_path`.
// "": the line is empty or above 64 KiB, or the first read failed.
struct FilesystemInfoData {
    std::string errors_count;        // number of errors
    std::string last_error_func;     // kernel function that reported the last error
    std::string last_error_errcode;  // ext4's own code of the last error
    std::string sysfs_path;          // directory of the filesystem, such as /sys/fs/ext4/dm-5
};

class FilesystemInfo : public DiskInfo {
  public:
    // `partition` is borrowed and must outlive the object, unchanged. `userdata` is the link to the
    // device-mapper device of userdata, `metadata` the link to the device of metadata.
    FilesystemInfo(const char* partition, std::string sysfs_root, std::string userdata,
                   std::string metadata);
    ~FilesystemInfo() override = default;

    int GetType() const override;
    bool DumpFilesystemInfo() override;

    // Empty: the partition is neither of the two, its device was not found, or a file could not be
    // opened.
    [[nodiscard]] virtual std::optional<FilesystemInfoData> GetFilesystemInfo() const;

  protected:
    std::string ext4_sysfs_root;
    std::string userdata_link;
    std::string metadata_link;
};

}  // namespace orvane::tavisk::disk_info
