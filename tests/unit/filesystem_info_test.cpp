#include <disk_info/disk_info.h>
#include <storage_test.h>

namespace {

constexpr char kUserdata[] = "/dev/block/mapper/userdata";
constexpr char kMetadata[] = "/dev/block/by-name/metadata";

// What the dump prints. Expects that it returns true if and only if it prints the record.
std::string Dump(const std::string& partition) {
    const std::unique_ptr<DiskInfo> filesystem = DiskInfo::GetDiskInfo(partition.c_str());
    bool dumped = false;
    std::string printed = StorageTest::Printed([&] { dumped = filesystem->DumpFilesystemInfo(); });
    EXPECT_EQ(dumped, printed.find("Error Count") != std::string::npos);
    return printed;
}

using FilesystemInfoTest = StorageTest;

TEST_F(FilesystemInfoTest, LinkNamesTheFilesystem) {
    const std::string dm5 =
        "dm-5 (userdata): Error Count: 12, Last Error From: f, Last Error Code: 5\n";
    const std::string lost = "sysfs path not found at \n";
    const struct {
        std::string partition;
        const char* link;
        const char* target;
        std::string printed;
    } cases[] = {
        {"userdata", kUserdata, "../dm-5", dm5},
        {"userdata", kUserdata, "dm-5", dm5},
        {"userdata", kUserdata, "dm-6", "sysfs path not found at /sys/fs/ext4/dm-6\n"},
        {"userdata", kUserdata, "/dev/dm-5/",
         "Symlink target /dev/dm-5/ is not in 'dm-*' format.\n" + lost},
        {"userdata", kUserdata, "\n<0>\\",
         "Symlink target \\n<0>\\\\ is not in 'dm-*' format.\n" + lost},
        {"userdata", kMetadata, "dm-5",
         "Error reading symlink /dev/block/mapper/userdata: No such file or directory\n" + lost},
        {"metadata", kMetadata, "/dev/block/sda7",
         "sda7 (metadata): Error Count: 12, Last Error From: f, Last Error Code: 5\n"},
        {"metadata", kMetadata, "/dev/block/", "Could not open file: /sys/fs/ext4//errors_count\n"},
        {"metadata", kUserdata, "dm-5",
         "Error reading symlink /dev/block/by-name/metadata: No such file or directory\n" + lost},
        {"metadata", kMetadata, "\n<0>\\", "sysfs path not found at /sys/fs/ext4/\\n<0>\\\\\n"},
        {"USERdata", kUserdata, "dm-5", "sysfs path not supported for USERdata\n"},
        {"É\ndata\x1b\x9b\\n", kUserdata, "dm-5",
         "sysfs path not supported for É\\ndata\\x1b\\x9b\\\\n\n"},
        {"data" + std::string(60'000, 'x'), kUserdata, "dm-5",
         "sysfs path not supported for data" + std::string(987, 'x') + "...\n"},  // 1 KiB
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.partition.substr(0, 99) + " -> " + c.target);
        ClearPrivateRoot();
        PlaceFilesystem("dm-5", "12\n", "f\n");
        PlaceFilesystem("sda7", "12\n", "f\n");
        WriteLink("/dev/block/dm-5", "dm-8");  // not followed
        WriteLink(c.link, c.target);
        EXPECT_EQ(Dump(c.partition), c.printed);
    }
}

TEST_F(FilesystemInfoTest, FirstFileThatCannotBeOpenedEndsTheReading) {
    WriteLink(kUserdata, "dm-\\5");
    MakeDirectory("/sys/fs/ext4/dm-\\5");
    for (const std::string name : {"errors_count", "last_error_func", "last_error_errcode"}) {
        EXPECT_EQ(Dump("userdata"), "Could not open file: /sys/fs/ext4/dm-\\\\5/" + name + "\n");
        WriteFile("/sys/fs/ext4/dm-\\5/" + name, "");
    }
    EXPECT_EQ(Dump("userdata"),
              "dm-\\5 (userdata): Error Count: , Last Error From: , Last Error Code: \n");
}

TEST_F(FilesystemInfoTest, FirstLinesAreUnchanged) {
    const std::string name(300, 'f');
    WriteLink(kUserdata, "dm-5");
    WriteFile("/sys/fs/ext4/dm-5/errors_count", " 12 \r\n13\n");
    WriteFile("/sys/fs/ext4/dm-5/last_error_func", name + "\n" + name);
    MakeDirectory("/sys/fs/ext4/dm-5/last_error_errcode");  // open succeeds, read fails
    EXPECT_EQ(Dump("userdata"), "dm-5 (userdata): Error Count:  12 \r, Last Error From: " + name +
                                    ", Last Error Code: \n");
}

}  // namespace
