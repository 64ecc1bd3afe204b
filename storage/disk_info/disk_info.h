// One disk or partition of the device, as a kind of its own: the base of the NVMe, UFS and
// filesystem kinds, and itself the kind of everything else. Also finds the disk that holds the data
// partition. An object belongs to whoever made it, lives for one request and is used by one thread;
// it opens what an operation needs, closes it before the operation returns and never writes to the
// disk.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace orvane::tavisk::disk_info {

// What GetType returns; tells which class an object is of.
enum DiskType : int {
    kDiskTypeUnknown = 0,
    kDiskTypeNvme = 1,
    kDiskTypeUfs = 2,
    kDiskTypeFilesystem = 3,  // the ext4 filesystem of a partition
};

class DiskInfo {
  public:
    // `path` is borrowed and must outlive the object, unchanged. Does no input or output.
    explicit DiskInfo(const char* path) : device_path(path) {}
    DiskInfo(const DiskInfo&) = delete;
    DiskInfo& operator=(const DiskInfo&) = delete;

    // A new object of the kind that `path` names; never null. The tests are on substrings, in this
    // order: "nvme", "sd", "data"; a path with none of them is of unknown kind. Null counts as "".
    // `path` is borrowed and must outlive the object, unchanged. Opens nothing.
    [[nodiscard]] static std::unique_ptr<DiskInfo> GetDiskInfo(const char* path);

    // The path of the whole disk that holds the data partition, such as /dev/block/sda. "": it
    // cannot be determined, and one ERROR record says why.
    [[nodiscard]] static std::string GetRootDevicePath();

    // The order of the virtual operations is that of their slots; subclasses append theirs.
    virtual ~DiskInfo() = default;

    virtual int GetType() const;

    // Print human-readable text to standard output. False: what was asked for could not be read.
    // This class reports nothing, which is no failure.
    virtual void GetPowerInfo();
    virtual bool DumpInfo();
    virtual bool DumpHealthInfo();

    // What a read of discarded blocks returns; each kind has its own words. "undefined": not known.
    virtual std::string GetDiscardReadValue();

    // Prints like the operations above.
    virtual bool DumpFilesystemInfo();

    // Size of the block device, in bytes. 0: it could not be read, and one ERROR record says why.
    virtual uint64_t GetSize();

  protected:
    // The device node, or the partition's name for a filesystem. Borrowed; the factory never leaves
    // it null.
    const char* device_path;
};

// The disk's path of a resolved partition path: without the partition number and a 'p' before it.
// "": there is nothing to strip or nothing would be left, and one ERROR record says so.
[[nodiscard]] std::string RootDeviceOf(const std::string& partition_path);

}  // namespace orvane::tavisk::disk_info
