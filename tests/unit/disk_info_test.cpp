#include <disk_info/filesystem_info.h>
#include <disk_info/nvme_info.h>
#include <disk_info/ufs_info.h>
#include <nvme_ioctl.h>
#include <storage_test.h>

#include <cstring>

namespace {

using DiskInfoTest = StorageTest;

TEST_F(DiskInfoTest, RootDeviceIsThePartitionWithoutItsNumber) {
    const std::string none = "E Path has no non-digit characters: ";
    const std::string unknown = "E Could not determine root device from path: ";
    const struct {
        const char* path;
        const char* root;
        std::string log;
    } cases[] = {{"/dev/block/nvme0n1p5", "/dev/block/nvme0n1", ""},
                 {"/dev/block/sda120", "/dev/block/sda", ""},
                 {"/dev/block/nvme0n1", "/dev/block/nvme0n", ""},
                 {"/dev/block/sdap", "/dev/block/sda", ""},
                 {"/dev/block/sda", "", unknown + "/dev/block/sda"},
                 {"pp", "p", ""},
                 {"p5", "", unknown + "p5"},
                 {"12", "", none + "12"},
                 {"", "", none}};
    for (const auto& c : cases) {
        EXPECT_EQ(RootDeviceOf(c.path), c.root);
        EXPECT_EQ(testing::PrintToString(log_.Take()),
                  c.log.empty() ? "{}" : "{ \"" + c.log + "\" }");
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
    EXPECT_THAT(log_.Take(), ElementsAre());
}

// Each number belongs to one class only.
TEST_F(DiskInfoTest, PathNamesTheKind) {
    const std::pair<const char*, int> cases[] = {{nullptr, 0},
                                                 {"NVME SD DATA nvm s d dat", 0},
                                                 {"/dev/block/nvme0n1", 1},
                                                 {"nvme_data", 1},
                                                 {"nvmesd", 1},
                                                 {"/dev/block/sda", 2},
                                                 {"sda_data", 2},
                                                 {"/dev/block/by-name/metadata", 3}};
    for (const auto& [path, type] : cases) {
        const std::unique_ptr<DiskInfo> disk = DiskInfo::GetDiskInfo(path);
        EXPECT_EQ(disk->GetType(), type) << (path == nullptr ? "null" : path);
    }
}

TEST_F(DiskInfoTest, UnknownKindPrintsThatItIsNotSupported) {
    for (const char* path : {static_cast<const char*>(nullptr), "/dev/block/mmcblk0"}) {
        const std::string name = path == nullptr ? "" : path;
        const std::unique_ptr<DiskInfo> disk = DiskInfo::GetDiskInfo(path);
        EXPECT_EQ(Printed([&] {
                      disk->GetPowerInfo();
                      EXPECT_TRUE(disk->DumpInfo());
                      EXPECT_TRUE(disk->DumpHealthInfo());
                      EXPECT_TRUE(disk->DumpFilesystemInfo());
                  }),
                  "Power info not supported yet for this device type: " + name +
                      "\nDisk info not supported yet for this device type: " + name +
                      "\nDumpHealthInfo not implemented for this disk type"
                      "\nFilesystem info not supported for this partition type: " +
                      name + "\n");
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
    EXPECT_THAT(log_.Take(), ElementsAre());
}

// Slots that pointers to virtual operations name. Dividing drops the bit that marks them as
// virtual.
template <typename... Methods>
std::vector<uintptr_t> Slots(Methods... methods) {
    const auto slot = [](auto method) {
        uintptr_t word = 0;
        memcpy(&word, &method, sizeof(word));
        return word / sizeof(void*);
    };
    return {slot(methods)...};
}

// Slots 0 and 1 are the destructor's.
TEST(SlotTest, VirtualOperationsKeepTheirOrder) {
    EXPECT_THAT(Slots(&DiskInfo::GetType, &DiskInfo::GetPowerInfo, &DiskInfo::DumpInfo,
                      &DiskInfo::DumpHealthInfo, &DiskInfo::GetDiscardReadValue,
                      &DiskInfo::DumpFilesystemInfo, &DiskInfo::GetSize),
                ElementsAre(2, 3, 4, 5, 6, 7, 8));
    EXPECT_THAT(Slots(&NvmeInfo::GetNvmeControllerId, &NvmeInfo::GetNvmeHealthInfo,
                      &NvmeInfo::GetNvmePowerInfo, &NvmeInfo::GetNvmeIdentifyData,
                      &NvmeInfo::GetNvmeLogPage),
                ElementsAre(9, 10, 11, 12, 13));
    EXPECT_THAT(
        Slots(&UfsInfo::GetUfsControllerId, &UfsInfo::GetUfsHealthInfo, &UfsInfo::ReadSysfsFile,
              &UfsInfo::GetUfsScsiDevicePath, &UfsInfo::GetUfsHostPath, &UfsInfo::InitializePaths),
        ElementsAre(9, 10, 11, 12, 13, 14));
    EXPECT_THAT(Slots(&FilesystemInfo::GetFilesystemInfo), ElementsAre(9));
}

}  // namespace
