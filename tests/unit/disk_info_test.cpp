#include <disk_info/disk_info.h>
#include <disk_info/filesystem_info.h>
#include <disk_info/nvme_info.h>
#include <disk_info/ufs_info.h>
#include <gmock/gmock.h>

#include <cstring>
#include <typeinfo>

#include "log_capture.h"
#include "nvme_ioctl.h"
#include "open_descriptors.h"
#include "private_root.h"

namespace orvane::tavisk::disk_info {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class DiskInfoTest : public PrivateRootTest {
  protected:
    LogCapture log_;
    OpenDescriptorsUnchanged descriptors_;
};

TEST_F(DiskInfoTest, RootDeviceIsThePartitionWithoutItsNumber) {
    const char none[] = "E Path has no non-digit characters: ";
    const char unknown[] = "E Could not determine root device from path: ";
    const struct {
        const char* path;
        const char* root;
        const char* log;
    } cases[] = {{"/dev/block/nvme0n1p5", "/dev/block/nvme0n1", nullptr},
                 {"/dev/block/sda120", "/dev/block/sda", nullptr},
                 {"/dev/block/mmcblk0p27", "/dev/block/mmcblk0", nullptr},
                 {"/dev/block/nvme0n1", "/dev/block/nvme0n", nullptr},
                 {"/dev/block/sdap", "/dev/block/sda", nullptr},
                 {"/dev/block/sda", "", unknown},
                 {"pp", "p", nullptr},
                 {"p", "", unknown},
                 {"p5", "", unknown},
                 {"12", "", none},
                 {"", "", none}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        EXPECT_EQ(RootDeviceOf(c.path), c.root);
        if (c.log == nullptr) {
            EXPECT_THAT(log_.Take(), IsEmpty());
        } else {
            EXPECT_THAT(log_.Take(), ElementsAre(std::string(c.log) + c.path));
        }
    }
}

TEST_F(DiskInfoTest, RootDeviceIsFoundBehindTheLinksOfUserdata) {
    const char log[] =
        "E realpath failed for /dev/block/by-name/userdata: No such file or directory";
    EXPECT_EQ(DiskInfo::GetRootDevicePath(), "");
    WriteLink("/dev/block/by-name/userdata", "../by-label/data");
    EXPECT_EQ(DiskInfo::GetRootDevicePath(), "");
    EXPECT_THAT(log_.Take(), ElementsAre(log, log));

    WriteLink("/dev/block/by-label/data", "/dev/block/sdb34");
    WriteFile("/dev/block/sdb34", "");
    EXPECT_EQ(DiskInfo::GetRootDevicePath(), "/dev/block/sdb");
    EXPECT_THAT(log_.Take(), IsEmpty());
}

TEST_F(DiskInfoTest, PathNamesTheKind) {
    const struct {
        const char* path;
        int type;
        const std::type_info& made;
    } cases[] = {{nullptr, 0, typeid(DiskInfo)},
                 {"/dev/block/mmcblk0", 0, typeid(DiskInfo)},
                 {"NVME SD DATA nvm s d dat", 0, typeid(DiskInfo)},
                 {"/dev/block/nvme0n1", 1, typeid(NvmeInfo)},
                 {"nvme_data", 1, typeid(NvmeInfo)},
                 {"/dev/block/sda", 2, typeid(UfsInfo)},
                 {"sda_data", 2, typeid(UfsInfo)},
                 {"userdata", 3, typeid(FilesystemInfo)},
                 {"metadata", 3, typeid(FilesystemInfo)},
                 {"/dev/block/by-name/userdata", 3, typeid(FilesystemInfo)}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path == nullptr ? "null" : c.path);
        const std::unique_ptr<DiskInfo> disk = DiskInfo::GetDiskInfo(c.path);
        const DiskInfo& object = *disk;
        EXPECT_TRUE(typeid(object) == c.made) << typeid(object).name();
        EXPECT_EQ(disk->GetType(), c.type);
    }
    EXPECT_THAT(log_.Take(), IsEmpty());
}

TEST_F(DiskInfoTest, UnknownKindSaysThatItReportsNothing) {
    for (const char* path : {static_cast<const char*>(nullptr), "/dev/block/mmcblk0"}) {
        const std::string name = path == nullptr ? "" : path;
        const std::unique_ptr<DiskInfo> disk = DiskInfo::GetDiskInfo(path);
        testing::internal::CaptureStdout();
        disk->GetPowerInfo();
        EXPECT_TRUE(disk->DumpInfo());
        EXPECT_TRUE(disk->DumpHealthInfo());
        EXPECT_TRUE(disk->DumpFilesystemInfo());
        const testing::Message lines =
            testing::Message() << "Power info not supported yet for this device type: " << name
                               << "\nDisk info not supported yet for this device type: " << name
                               << "\nDumpHealthInfo not implemented for this disk type\n"
                               << "Filesystem info not supported for this partition type: " << name
                               << "\n";
        EXPECT_EQ(testing::internal::GetCapturedStdout(), lines.GetString());
        EXPECT_EQ(disk->GetDiscardReadValue(), "undefined");
    }
}

TEST_F(DiskInfoTest, SizeIsTheBlockDevicesOrZeroWithTheReason) {
    DiskInfo disk("/dev/block/mmc\\blk");
    EXPECT_EQ(disk.GetSize(), 0U);
    EXPECT_THAT(log_.Take(), ElementsAre("E Failed to open /dev/block/mmc\\\\blk for size: "
                                         "No such file or directory"));
    WriteFile("/dev/block/mmc\\blk", "");
    EXPECT_EQ(disk.GetSize(), 0U);
    EXPECT_THAT(log_.Take(), ElementsAre("E Failed to get size for /dev/block/mmc\\\\blk: "
                                         "Inappropriate ioctl for device"));
    FakeNvme driver;
    driver.ExpectSize(0x123456789AB);
    EXPECT_EQ(disk.GetSize(), 1250999896491U);
    EXPECT_THAT(log_.Take(), IsEmpty());
}

// The slot that a pointer to a virtual operation names. The bit that marks it as virtual falls out.
template <typename Method>
uintptr_t Slot(Method method) {
    uintptr_t word = 0;
    memcpy(&word, &method, sizeof(word));
    return word / sizeof(void*);
}

// Slots 0 and 1 are the destructor's.
TEST(SlotTest, VirtualOperationsKeepTheirOrder) {
    EXPECT_THAT((std::vector{Slot(&DiskInfo::GetType), Slot(&DiskInfo::GetPowerInfo),
                             Slot(&DiskInfo::DumpInfo), Slot(&DiskInfo::DumpHealthInfo),
                             Slot(&DiskInfo::GetDiscardReadValue),
                             Slot(&DiskInfo::DumpFilesystemInfo), Slot(&DiskInfo::GetSize)}),
                ElementsAre(2, 3, 4, 5, 6, 7, 8));
    EXPECT_THAT(
        (std::vector{Slot(&NvmeInfo::GetNvmeControllerId), Slot(&NvmeInfo::GetNvmeHealthInfo),
                     Slot(&NvmeInfo::GetNvmePowerInfo), Slot(&NvmeInfo::GetNvmeIdentifyData),
                     Slot(&NvmeInfo::GetNvmeLogPage)}),
        ElementsAre(9, 10, 11, 12, 13));
    EXPECT_THAT((std::vector{Slot(&UfsInfo::GetUfsControllerId), Slot(&UfsInfo::GetUfsHealthInfo),
                             Slot(&UfsInfo::ReadSysfsFile), Slot(&UfsInfo::GetUfsScsiDevicePath),
                             Slot(&UfsInfo::GetUfsHostPath), Slot(&UfsInfo::InitializePaths)}),
                ElementsAre(9, 10, 11, 12, 13, 14));
    EXPECT_EQ(Slot(&FilesystemInfo::GetFilesystemInfo), 9U);
}

}  // namespace
}  // namespace orvane::tavisk::disk_info
