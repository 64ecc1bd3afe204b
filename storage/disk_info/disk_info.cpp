#include <base/escape.h>
#include <base/retry.h>
#include <base/unique_fd.h>
#include <disk_info/disk_info.h>
#include <disk_info/filesystem_info.h>
#include <disk_info/nvme_info.h>
#include <disk_info/sysfs.h>
#include <disk_info/ufs_info.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <logging/logging.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <cstdio>
#include <string_view>

namespace orvane::tavisk::disk_info {
namespace {

constexpr char kDataPartition[] = "/dev/block/by-name/userdata";

}  // namespace

std::unique_ptr<DiskInfo> DiskInfo::GetDiskInfo(const char* path) {
    if (path == nullptr) path = "";
    const auto contains = [path](std::string_view text) {
        return std::string_view(path).find(text) != std::string_view::npos;
    };
    if (contains("nvme")) return std::make_unique<NvmeInfo>(path);
    if (contains("sd")) return std::make_unique<UfsInfo>(path);
    if (contains("data")) {
        return std::make_unique<FilesystemInfo>(path, "/sys/fs/ext4", "/dev/block/mapper/userdata",
                                                "/dev/block/by-name/metadata");
    }
    return std::make_unique<DiskInfo>(path);
}

std::string DiskInfo::GetRootDevicePath() {
    const std::optional<std::string> partition = CanonicalPath(kDataPartition);
    if (!partition) {
        PLOG(ERROR) << "realpath failed for " << kDataPartition;
        return "";
    }
    return RootDeviceOf(*partition);
}

std::string RootDeviceOf(const std::string& partition_path) {
    const size_t last = partition_path.find_last_not_of("0123456789");
    if (last == std::string::npos) {
        LOG(ERROR) << "Path has no non-digit characters: " << base::Escaped(partition_path);
        return "";
    }
    // The path is expected to name a partition. For the whole disk nvme0n1 the result is nvme0n,
    // and a final 'p' is removed even if no number follows (sdap gives sda). Required behaviour,
    // not an oversight.
    const size_t kept = partition_path[last] == 'p' ? last : last + 1;
    if (kept == 0 || kept >= partition_path.size()) {
        LOG(ERROR) << "Could not determine root device from path: "
                   << base::Escaped(partition_path);
        return "";
    }
    return partition_path.substr(0, kept);
}

int DiskInfo::GetType() const {
    return kDiskTypeUnknown;
}

void DiskInfo::GetPowerInfo() {
    printf("Power info not supported yet for this device type: %s\n", device_path);
}

bool DiskInfo::DumpInfo() {
    printf("Disk info not supported yet for this device type: %s\n", device_path);
    return true;
}

bool DiskInfo::DumpHealthInfo() {
    printf("DumpHealthInfo not implemented for this disk type\n");
    return true;
}

std::string DiskInfo::GetDiscardReadValue() {
    return "undefined";
}

bool DiskInfo::DumpFilesystemInfo() {
    printf("Filesystem info not supported for this partition type: %s\n", device_path);
    return true;
}

uint64_t DiskInfo::GetSize() {
    const base::UniqueFd fd(
        base::RetryOnInterrupt([&] { return open(device_path, O_RDONLY | O_CLOEXEC); }));
    if (!fd) {
        PLOG(ERROR) << "Failed to open " << base::Escaped(device_path) << " for size";
        return 0;
    }
    uint64_t size_bytes = 0;
    if (base::RetryOnInterrupt([&] { return ioctl(fd.get(), BLKGETSIZE64, &size_bytes); }) != 0) {
        PLOG(ERROR) << "Failed to get size for " << base::Escaped(device_path);
        return 0;
    }
    return size_bytes;
}

}  // namespace orvane::tavisk::disk_info
