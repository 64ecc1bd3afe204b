// Disks and kernels that answer what none should.
#include <nvme_ioctl.h>
#include <service_fixture.h>

#include <cerrno>
#include <cstring>
#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace {

using LyingDiskTest = ServiceTest;

TEST_F(LyingDiskTest, ANvmeDisksBytesTravelAsTheyAre) {
    PlaceDataPartition("nvme0n1", "nvme0n1p5");
    FakeNvme nvme;
    for (const int byte : {0x01, 0x7f, 0xff}) {
        nvme.ExpectCommand(0x06, 0, 1, 4096, {.data = std::vector<uint8_t>(4096, uint8_t(byte))});
        nvme.ExpectSize(1);
        std::optional<DiskInfoParcel> info;
        ASSERT_TRUE(service_->getDiskInfo(&info).isOk());
        const auto text = [&](size_t size) { return std::string(size, char(byte)); };
        EXPECT_EQ(*info,
                  DiskInfoParcel(NvmeInfoParcel{"NVMe", text(40), text(20), text(8), byte * 257,
                                                byte, byte, (byte & 4) != 0, 1}));
    }
}

TEST_F(LyingDiskTest, CountersOfAnySizeTravelAsTheir64Bits) {
    const std::pair<const char*, int64_t> cases[] = {
        {"0x0", 0},
        {"0x100000000", 4294967296},
        {"0x20000000000000", 9007199254740992},
        {"0x8000000000000000", std::numeric_limits<int64_t>::min()},
        {"18446744073709551615", -1},
    };
    for (const auto& [text, counter] : cases) {
        SCOPED_TRACE(text);
        ClearPrivateRoot();
        PlaceUfsDisk();
        WriteFile(std::string(kController) + "/health_descriptor/eol_info", "0x01");
        WriteFile(std::string(kUnit) + "/ioerr_cnt", text);
        std::optional<DiskHealthParcel> health;
        ASSERT_TRUE(service_->getDiskHealth(&health).isOk());
        EXPECT_EQ(*health,
                  DiskHealthParcel(UfsHealthInfoParcel{"0x01", "", "", counter, "undefined"}));

        PlaceDataPartition("nvme0n1", "nvme0n1p5");
        FakeNvme nvme;
        std::vector<uint8_t> log(512, 0);
        for (const size_t offset : {48, 160, 176}) std::memcpy(&log[offset], &counter, 8);
        nvme.ExpectCommand(0x02, 0xffffffff, 0x007f0002, 512, {.data = log});
        nvme.ExpectNamespaceId({.result = -1, .error = EINTR});
        ASSERT_TRUE(service_->getDiskHealth(&health).isOk());
        EXPECT_EQ(*health, DiskHealthParcel(NvmeHealthInfoParcel{0, 0, 0, 0, counter, counter,
                                                                 counter, "undefined"}));
    }
}

TEST_F(LyingDiskTest, FilesThatCannotBeAttributesDoNoHarm) {
    PlaceUfsDisk();
    const std::string unit = kUnit;
    const std::string host = kController;
    WriteFile(unit + "/vendor", std::string(65536, 'x'));
    WriteFile(unit + "/rev", std::string(65537, 'x'));
    WriteFile(unit + "/model", std::string("A\0B\n", 4));
    WriteFile(unit + "/unit_descriptor/provisioning_type", std::string("3\0", 2));
    WriteFile(host + "/device_descriptor/specification_version", std::string(5 << 20, ' ') + "1");
    WriteFile(host + "/device_descriptor/wb_presv_us_en", "1" + std::string(5 << 20, ' '));
    WriteLink(host + "/power_info/gear", "lane");
    WriteLink(host + "/power_info/lane", "gear");
    MakeDirectory(host + "/wb_on");
    FakeNvme block_size;
    block_size.ExpectSize(1);
    std::optional<DiskInfoParcel> info;
    ASSERT_TRUE(service_->getDiskInfo(&info).isOk());
    UfsInfoParcel expected;
    expected.type = "UFS";
    expected.vendor = std::string(65536, 'x');
    expected.modelNumber = std::string("A\0B", 3);
    expected.size = 1;
    EXPECT_EQ(*info, DiskInfoParcel(expected));

    WriteLink("/sys/block/sda", "sda");  // a disk that is not found has an identity without texts
    block_size.ExpectSize(2);
    ASSERT_TRUE(service_->getDiskInfo(&info).isOk());
    UfsInfoParcel unknown;
    unknown.size = 2;
    EXPECT_EQ(*info, DiskInfoParcel(unknown));
    WriteLink(kUserdata, kUserdata);
    ExpectUnavailable(&IDiskInfoService::getDiskInfo);
}

}  // namespace
