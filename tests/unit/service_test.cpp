// The four calls on scripted NVMe commands and on trees of files: what reaches which field, and
// which failure becomes which status and record.
#include <device_tree.h>
#include <gmock/gmock.h>
#include <log_capture.h>
#include <nvme_ioctl.h>
#include <service/DiskInfoService.h>

#include <cerrno>
#include <limits>
#include <memory>
#include <numeric>
#include <optional>
#include <string>
#include <utility>
#include <vector>

using namespace morsk::com::quendar::tavisk::disk_info;
using binder::ScopedStatus;
using testing::ElementsAre;

namespace {

constexpr char kUserdata[] = "/dev/block/by-name/userdata";
constexpr int64_t kLowest = std::numeric_limits<int64_t>::min();

class ServiceTest : public PrivateRootTest {
  protected:
    // Makes the data partition `partition` of the disk `disk`.
    void PlaceDataPartition(const std::string& disk, const std::string& partition) {
        WriteFile("/dev/block/" + disk, "");
        WriteFile("/dev/block/" + partition, "");
        WriteLink(kUserdata, "/dev/block/" + partition);
    }
    // Calls, and expects the service-specific error -1 and no result.
    template <typename Result>
    void ExpectUnavailable(ScopedStatus (IDiskInfoService::*getter)(std::optional<Result>*)) {
        std::optional<Result> result;
        const ScopedStatus status = (service_.get()->*getter)(&result);
        EXPECT_EQ(AStatus_getExceptionCode(status.get()), EX_SERVICE_SPECIFIC);
        EXPECT_EQ(AStatus_getServiceSpecificError(status.get()), -1);
        EXPECT_FALSE(result.has_value());
    }

    LogCapture log_;
    std::shared_ptr<DiskInfoService> service_ = binder::SharedRefBase::make<DiskInfoService>();
};

// `size` characters, each one more than the one before it.
std::string Sequence(char first, size_t size) {
    std::string text(size, first);
    std::iota(text.begin(), text.end(), first);
    return text;
}

TEST_F(ServiceTest, NvmeAnswers) {
    PlaceDataPartition("nvme0n1", "nvme0n1p5");
    FakeNvme nvme;
    const NvmeReply page{.data = NvmePage()};
    nvme.Expect(kIdentifyController, page);
    nvme.ExpectSize(512110190592);
    nvme.Expect(kHealthLog, page);
    nvme.Expect(kNamespaceId, {.result = 7});
    nvme.Expect({0x06, 7, 0, 4096}, page);
    nvme.Expect(kPowerState, {.dword0 = 3});
    nvme.Expect(kIdentifyController, page);

    std::optional<DiskInfoParcel> info;
    ASSERT_TRUE(service_->getDiskInfo(&info).isOk());
    EXPECT_EQ(*info,
              DiskInfoParcel(NvmeInfoParcel{"NVMe", Sequence(25, 40), Sequence(5, 20), "ABCDEFGH",
                                            0x5453, 0x52, 0x51, true, 512110190592}));
    std::optional<DiskHealthParcel> health;
    ASSERT_TRUE(service_->getDiskHealth(&health).isOk());
    // 2^63 and more travels as the same 64 bits.
    EXPECT_EQ(*health, DiskHealthParcel(NvmeHealthInfoParcel{4, 5, 6, 1, 0x3837363534333231,
                                                             int64_t(0xa8a7a6a5a4a3a2a1),
                                                             int64_t(0xb8b7b6b5b4b3b2b1), "1"}));
    std::optional<DiskPowerParcel> power;
    ASSERT_TRUE(service_->getDiskPower(&power).isOk());
    EXPECT_EQ(*power, DiskPowerParcel(NvmePowerInfoParcel{3, true}));
    EXPECT_THAT(log_.Take(), ElementsAre());
}

TEST_F(ServiceTest, AnNvmeDiskThatCannotBeReadFailsHealthAlone) {
    PlaceDataPartition("nvme0n1", "nvme0n1p5");
    FakeNvme nvme;
    nvme.Expect(kIdentifyController, {.result = 0x4002});
    nvme.ExpectSize(4096);
    nvme.Expect(kHealthLog, {.result = -1, .error = EIO});
    nvme.Expect(kPowerState, {.result = -1, .error = EIO});

    std::optional<DiskInfoParcel> info;
    std::optional<DiskPowerParcel> power;
    EXPECT_TRUE(service_->getDiskInfo(&info).isOk());
    ExpectUnavailable(&IDiskInfoService::getDiskHealth);
    EXPECT_TRUE(service_->getDiskPower(&power).isOk());
    EXPECT_EQ(info, DiskInfoParcel(NvmeInfoParcel{"", "", "", "", 0, 0, 0, false, 4096}));
    EXPECT_EQ(power, DiskPowerParcel(NvmePowerInfoParcel{-1, false}));
    EXPECT_THAT(log_.Take(), ElementsAre());
}

TEST_F(ServiceTest, UfsAnswers) {
    PlaceDevice();
    WriteFile(std::string(kUnit) + "/ioerr_cnt", "0x8000000000000007");
    WriteFile(std::string(kController) + "/device_descriptor/wb_shared_alloc_units", "0x80000001");
    // 6 * 2^57 sectors: half of it is the buffer
    WriteFile("/sys/block/sda/size", "864691128455135232");
    FakeNvme block_size;
    block_size.ExpectSize(4398046513152);

    std::optional<DiskInfoParcel> info;
    ASSERT_TRUE(service_->getDiskInfo(&info).isOk());
    EXPECT_EQ(*info,
              DiskInfoParcel(UfsInfoParcel{
                  "UFS",  "ACME",       "Fast 1",   "r2",        true, 0x0310,       3,
                  1,      true,         true,       2,           0.5F, -2147483647,  0x200000,
                  "0x07", "0x00000101", "HS_GEAR4", "HS_RATE_B", "2",  4398046513152}));
    std::optional<DiskHealthParcel> health;
    ASSERT_TRUE(service_->getDiskHealth(&health).isOk());
    EXPECT_EQ(*health,
              DiskHealthParcel(UfsHealthInfoParcel{"0x01", "0x08", "0x09", kLowest + 7, "0"}));
    std::optional<DiskPowerParcel> power;
    ASSERT_TRUE(service_->getDiskPower(&power).isOk());
    EXPECT_EQ(*power, DiskPowerParcel(UfsPowerInfoParcel{"ACTIVE", true}));

    WriteLink("/sys/block/sda", "sda");  // leads nowhere: the identity is without texts
    block_size.ExpectSize(2);
    UfsInfoParcel unknown;
    unknown.size = 2;
    ASSERT_TRUE(service_->getDiskInfo(&info).isOk());
    EXPECT_EQ(*info, DiskInfoParcel(unknown));
    ExpectUnavailable(&IDiskInfoService::getDiskHealth);
}

TEST_F(ServiceTest, NoRootDeviceIsOneRecordACall) {
    const char* record = "E Failed to determine root device path.";
    WriteFile("/dev/block/sda", "");
    WriteLink(kUserdata, "/dev/block/sda");
    const char* reason = "E Could not determine root device from path: /dev/block/sda";
    ExpectUnavailable(&IDiskInfoService::getDiskInfo);
    ExpectUnavailable(&IDiskInfoService::getDiskHealth);
    ExpectUnavailable(&IDiskInfoService::getDiskPower);
    EXPECT_THAT(log_.Take(), ElementsAre(reason, record, reason, record, reason, record));
}

TEST_F(ServiceTest, AnotherKindOfDiskIsUnsupported) {
    for (const std::string disk : {"mmcblk0", "my_data"}) {
        PlaceDataPartition(disk, disk + "p27");
        ExpectUnavailable(&IDiskInfoService::getDiskInfo);
        EXPECT_THAT(log_.Take(), ElementsAre("E Unsupported disk type for /dev/block/" + disk));
        ExpectUnavailable(&IDiskInfoService::getDiskHealth);
        ExpectUnavailable(&IDiskInfoService::getDiskPower);
        EXPECT_THAT(log_.Take(), ElementsAre());
    }
}

TEST_F(ServiceTest, FilesystemCountersAreParsedToTheirEnd) {
    WriteLink("/dev/block/mapper/userdata", "/dev/block/dm-5");
    WriteFile("/sys/fs/ext4/dm-5/last_error_func", "ext4_find_entry\n");
    const struct {
        const char* text;
        int64_t count;
        int32_t code;
    } cases[] = {
        {"12", 12, 12},
        {"0x1A", 26, 26},
        {"017", 17, 17},
        {"-3", -3, -3},
        {" \t\v\f\r42", 42, 42},
        {"42 ", 0, 0},
        {"", 0, 0},
        {"abc", 0, 0},
        {"0x", 0, 0},
        {"-0x10", 0, 0},
        {"2147483648", 2147483648, 0},
        {"9223372036854775807", 9223372036854775807, 0},
        {"9223372036854775808", 0, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        WriteFile("/sys/fs/ext4/dm-5/errors_count", c.text);
        WriteFile("/sys/fs/ext4/dm-5/last_error_errcode", c.text);
        std::optional<FilesystemInfoParcel> info = FilesystemInfoParcel{9, "old", 9, "old"};
        ASSERT_TRUE(service_->getFilesystemInfo("userdata", &info).isOk());
        EXPECT_EQ(info,
                  (FilesystemInfoParcel{c.count, "ext4_find_entry", c.code, "/sys/fs/ext4/dm-5"}));
    }
}

TEST_F(ServiceTest, OtherPartitionsAreRefused) {
    const struct {
        std::string partition;
        binder_exception_t exception;
        std::vector<std::string> records;
    } cases[] = {
        {"", -3, {"E Partition  is not a supported filesystem partition."}},
        {"dat", -3, {"E Partition dat is not a supported filesystem partition."}},
        {"USERDATA", -3, {"E Partition USERDATA is not a supported filesystem partition."}},
        {"sda_data", -3, {"E Device sda_data is not a supported filesystem (type mismatch)."}},
        {"nvme_data", -3, {"E Device nvme_data is not a supported filesystem (type mismatch)."}},
        {std::string("user\0data", 9),
         -3,
         {"E Device user\\x00data is not a supported filesystem (type mismatch)."}},
        {"\n<0>É\\", -3, {"E Partition \\n<0>É\\\\ is not a supported filesystem partition."}},
        {"mydata", EX_SERVICE_SPECIFIC, {}},
        {kUserdata, EX_SERVICE_SPECIFIC, {}},
        {"metadata", EX_SERVICE_SPECIFIC, {}},  // no link
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.partition);
        std::optional<FilesystemInfoParcel> info;
        const ScopedStatus status = service_->getFilesystemInfo(c.partition, &info);
        EXPECT_EQ(AStatus_getExceptionCode(status.get()), c.exception);
        EXPECT_EQ(AStatus_getServiceSpecificError(status.get()), c.exception == -3 ? 0 : -1);
        EXPECT_FALSE(info.has_value());
        EXPECT_EQ(log_.Take(), c.records);
    }
}

}  // namespace
