// Failures and the counters of filesystems: statuses and log records of the calls. nvme_info_test
// and ufs_info_test check the results about disks.
#include <storage_test.h>

#include <vector>

namespace {

using ServiceTest = StorageTest;

TEST_F(ServiceTest, UnsupportedDiskIsUnavailableOnEachCall) {
    const std::string none = "E Failed to determine root device path.";
    const std::string reason = "E Could not determine root device from path: /dev/block/sda";
    const std::string unsupported = "E Unsupported disk type for /dev/block/";
    const struct {
        const char* disk;
        const char* partition;
        std::vector<std::string> info, others;  // records of getDiskInfo and of each other call
    } cases[] = {{"sda", "sda", {reason, none}, {reason, none}},
                 {"mmcblk0", "mmcblk0p27", {unsupported + "mmcblk0"}, {}},
                 {"my_data", "my_data3", {unsupported + "my_data"}, {}}};
    for (const auto& c : cases) {
        PlaceDataPartition(c.disk, c.partition);
        EXPECT_EQ(Info(), kUnavailable);
        EXPECT_EQ(log_.Take(), c.info);
        EXPECT_EQ(Health(), kUnavailable);
        EXPECT_EQ(log_.Take(), c.others);
        EXPECT_EQ(Power(), kUnavailable);
        EXPECT_EQ(log_.Take(), c.others);
    }
}

TEST_F(ServiceTest, FilesystemCountersAreParsedToTheirEnd) {
    WriteLink("/dev/block/mapper/userdata", "/dev/block/dm-5");
    const struct {
        const char* text;
        const char* count;
        const char* code;
    } cases[] = {{"0x1A", "26", "26"},
                 {"017", "17", "17"},
                 {" \t\v\f\r42", "42", "42"},
                 {"42 ", "0", "0"},
                 {"", "0", "0"},
                 {"0x", "0", "0"},
                 {"-0x10", "0", "0"},
                 {"2147483647", "2147483647", "2147483647"},
                 {"2147483648", "2147483648", "0"},
                 {"-2147483648", "-2147483648", "-2147483648"},
                 {"-2147483649", "-2147483649", "0"},
                 {"9223372036854775808", "0", "0"}};
    for (const auto& c : cases) {
        PlaceFilesystem("dm-5", c.text, "ext4_find_entry\n", c.text);
        EXPECT_EQ(Filesystem("userdata"),
                  std::string("|") + c.count + "|ext4_find_entry|" + c.code + "|/sys/fs/ext4/dm-5")
            << c.text;
    }
}

TEST_F(ServiceTest, OtherPartitionsAreRejected) {
    const std::string partition = "E Partition ", device = "E Device ";
    const std::string no_filesystem = " is not a supported filesystem partition.";
    const std::string mismatch = " is not a supported filesystem (type mismatch).";
    const char illegal[] = "exception -3, error 0";
    const struct {
        std::string name;
        const char* status;
        std::vector<std::string> records;
    } cases[] = {
        {"", illegal, {partition + no_filesystem}},
        {"dat", illegal, {partition + "dat" + no_filesystem}},
        {"USERDATA", illegal, {partition + "USERDATA" + no_filesystem}},
        {"sda_data", illegal, {device + "sda_data" + mismatch}},
        {"nvme_data", illegal, {device + "nvme_data" + mismatch}},
        {std::string("user\0data", 9), illegal, {device + "user\\x00data" + mismatch}},
        {"\n<0>É\\", illegal, {partition + "\\n<0>É\\\\" + no_filesystem}},
        {"mydata", kUnavailable, {}},
        {"metadata", kUnavailable, {}},  // no link
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Filesystem(c.name), c.status);
        EXPECT_EQ(log_.Take(), c.records);
    }
}

}  // namespace
