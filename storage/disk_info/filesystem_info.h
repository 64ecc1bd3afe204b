// The ext4 filesystem of the "userdata" or "metadata" partition: the error counters that the
// kernel's ext4 driver keeps for it in sysfs. `device_path` is the partition's name. Failures go
// to standard error, never to the log.
#pragma once

#include <disk_info/disk_info.h>

#include <optional>

namespace orvane::tavisk::disk_info {

// First lines of the files in `sysfs_path`, untrimmed; "" where a file is empty.
struct FilesystemInfoData {
    std::string errors_count;
    std::string last_error_func;
    std::string last_error_errcode;
    std::string sysfs_path;  // such as /sys/fs/ext4/dm-5
};

class FilesystemInfo : public DiskInfo {
  public:
    // `partition` is borrowed and must outlive the object, unchanged. Of the links, the first leads
    // to userdata's device-mapper device, the second to metadata's device.
    FilesystemInfo(const char* partition, std::string sysfs_root, std::string userdata,
                   std::string metadata);
    ~FilesystemInfo() override = default;

    int GetType() const override;
    bool DumpFilesystemInfo() override;

    // Empty: the partition is not one of the two, its device cannot be told or one of the files
    // cannot be opened.
    [[nodiscard]] virtual std::optional<FilesystemInfoData> GetFilesystemInfo() const;

  protected:
    std::string ext4_sysfs_root;
    std::string userdata_link;
    std::string metadata_link;
};

}  // namespace orvane::tavisk::disk_info
