#include <disk_info/disk_info.h>

#include <memory>
#include <string>

#include "open_descriptors.h"
#include "private_root.h"

namespace orvane::tavisk::disk_info {
namespace {

class FilesystemInfoTest : public PrivateRootTest {
  protected:
    // What the dump prints to standard output, then what it prints to standard error.
    std::string Dump(const char* partition) {
        const std::unique_ptr<DiskInfo> filesystem = DiskInfo::GetDiskInfo(partition);
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        const bool dumped = filesystem->DumpFilesystemInfo();
        const std::string output = testing::internal::GetCapturedStdout();
        EXPECT_EQ(dumped, !output.empty());
        return output + testing::internal::GetCapturedStderr();
    }

    OpenDescriptorsUnchanged descriptors_;
};

constexpr char kUserdata[] = "/dev/block/mapper/userdata";
constexpr char kMetadata[] = "/dev/block/by-name/metadata";

TEST_F(FilesystemInfoTest, LinkNamesTheFilesystem) {
    const std::string dm5 =
        "dm-5 (userdata): Error Count: 12, Last Error From: f, Last Error Code: 5\n";
    const std::string sda7 =
        "sda7 (metadata): Error Count: 12, Last Error From: f, Last Error Code: 5\n";
    const std::string lost = "sysfs path not found at \n";
    const std::string long_name = "data" + std::string(60'000, 'x');
    const struct {
        const char* partition;
        const char* link;
        const char* target;
        std::string output;
    } cases[] = {
        {"userdata", kUserdata, "/dev/block/dm-5", dm5},
        {"userdata", kUserdata, "../dm-5", dm5},
        {"userdata", kUserdata, "dm-5", dm5},
        {"userdata", kUserdata, "dm-6", "sysfs path not found at /sys/fs/ext4/dm-6\n"},
        {"userdata", kUserdata, "/dev/sda7",
         "Symlink target /dev/sda7 is not in 'dm-*' format.\n" + lost},
        {"userdata", kUserdata, "/dev/dm-5/",
         "Symlink target /dev/dm-5/ is not in 'dm-*' format.\n" + lost},
        {"userdata", kUserdata, "\n<0>\\",
         "Symlink target \\n<0>\\\\ is not in 'dm-*' format.\n" + lost},
        {"userdata", kMetadata, "dm-5",
         "Error reading symlink /dev/block/mapper/userdata: No such file or directory\n" + lost},
        {"metadata", kMetadata, "/dev/block/sda7", sda7},
        {"metadata", kMetadata, "/dev/block/", "Could not open file: /sys/fs/ext4//errors_count\n"},
        {"metadata", kUserdata, "dm-5",
         "Error reading symlink /dev/block/by-name/metadata: No such file or directory\n" + lost},
        {"metadata", kMetadata, "\n<0>\\", "sysfs path not found at /sys/fs/ext4/\\n<0>\\\\\n"},
        {"USERdata", kUserdata, "dm-5", "sysfs path not supported for USERdata\n"},
        {"É\ndata\x1b\x9b\\n", kUserdata, "dm-5",
         "sysfs path not supported for É\\ndata\\x1b\\x9b\\\\n\n"},
        {long_name.c_str(), kUserdata, "dm-5",
         "sysfs path not supported for " + long_name.substr(0, 991) + "...\n"},  // 1 KiB
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.partition) + " -> " + c.target);
        ClearPrivateRoot();
        for (const char* directory : {"/sys/fs/ext4/dm-5/", "/sys/fs/ext4/sda7/"}) {
            WriteFile(directory + std::string("errors_count"), "12\n");
            WriteFile(directory + std::string("last_error_func"), "f\n");
            WriteFile(directory + std::string("last_error_errcode"), "5\n");
        }
        WriteLink("/dev/block/dm-5", "dm-8");  // not followed
        WriteLink(c.link, c.target);
        EXPECT_EQ(Dump(c.partition), c.output);
    }
}

TEST_F(FilesystemInfoTest, FirstFileThatCannotBeOpenedEndsTheReading) {
    WriteLink(kUserdata, "dm-\\5");
    MakeDirectory("/sys/fs/ext4/dm-\\5");
    for (const char* name : {"errors_count", "last_error_func", "last_error_errcode"}) {
        const std::string path = std::string("/sys/fs/ext4/dm-\\5/") + name;
        EXPECT_EQ(Dump("userdata"),
                  "Could not open file: /sys/fs/ext4/dm-\\\\5/" + std::string(name) + "\n");
        WriteFile(path, "");
    }
    EXPECT_EQ(Dump("userdata"),
              "dm-\\5 (userdata): Error Count: , Last Error From: , Last Error Code: \n");
}

TEST_F(FilesystemInfoTest, FirstLinesAreGivenAsTheyAre) {
    const std::string name(300, 'f');
    WriteLink(kUserdata, "dm-5");
    WriteFile("/sys/fs/ext4/dm-5/errors_count", " 12 \r\n13\n");
    WriteFile("/sys/fs/ext4/dm-5/last_error_func", name + "\n" + name);
    MakeDirectory("/sys/fs/ext4/dm-5/last_error_errcode");  // opens, but cannot be read
    EXPECT_EQ(Dump("userdata"), "dm-5 (userdata): Error Count:  12 \r, Last Error From: " + name +
                                    ", Last Error Code: \n");
}

}  // namespace
}  // namespace orvane::tavisk::disk_info
