// A block device or partition: base class of the NVMe, UFS and filesystem classes, and the class of
// devices of unknown kind. Also finds the disk that holds the data partition. The creator owns an
// object, uses it from one thread and destroys it at the end of the request. Each operation opens
// what it needs and closes it before it returns; none writes to the disk.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace orvane::tavisk::disk_info {

// Result of GetType; identifies the class of an object.
enum DiskType : int {
    kDiskTypeUnknown = 0,
    kDiskTypeNvme = 1,
    kDiskTypeUfs = 2,
    kDiskTypeFilesystem = 3,  // the ext4 filesystem of a partition
};

class DiskInfo {
  public:
    // `path` is borrowed and must outlive the object, unchanged. Performs no I/O.
    explicit DiskInfo(const char* path) : device_path(path) {}
    DiskInfo(const DiskInfo&) = delete;
    DiskInfo& operator=(const DiskInfo&) = delete;

    // A new object for `path`; never null. The first of "nvme", "sd" and "data" that the path
    // contains, in this order, selects the class; without any, it is DiskInfo itself. A null path
    // counts as "". `path` is borrowed and must outlive the object, unchanged. Opens nothing.
    [[nodiscard]] static std::unique_ptr<DiskInfo> GetDiskInfo(const char* path);

    // Path of the whole disk that holds the data partition, such as /dev/block/sda. "": not
    // determined; the reason is logged as one ERROR record.
    [[nodiscard]] static std::string GetRootDevicePath();

    // The order of the virtual operations fixes their slots; subclasses append their own.
    virtual ~DiskInfo() = default;

    virtual int GetType() const;

    // Print human-readable text to standard output. False: the data could not be read. For a device
    // of unknown kind they print a "not supported" line and return true.
    virtual void GetPowerInfo();
    virtual bool DumpInfo();
    virtual bool DumpHealthInfo();

    // What a read of discarded blocks returns; the values are those of the subclass. "undefined":
    // not known.
    virtual std::string GetDiscardReadValue();

    // Prints to standard output, like the operations above.
    virtual bool DumpFilesystemInfo();

    // Size of the block device, in bytes. 0: it could not be read; the reason is logged as one
    // ERROR record.
    virtual uint64_t GetSize();

  protected:
    // Path of the device node; for a filesystem, the name of the partition. Borrowed. Never null if
    // the factory made the object.
    const char* device_path;
};

// Path of the disk for a resolved partition path: removes the partition number and a 'p' before it.
// "": nothing to remove, or nothing would remain; logs one ERROR record.
[[nodiscard]] std::string RootDeviceOf(const std::string& partition_path);

}  // namespace orvane::tavisk::disk_info
