#include <disk_info/ufs_info.h>
#include <gmock/gmock.h>

#include <optional>
#include <string>
#include <utility>

#include "log_capture.h"
#include "open_descriptors.h"
#include "private_root.h"

namespace orvane::tavisk::disk_info {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string kHost = "/sys/devices/pci0/ufs";
const std::string kScsi = kHost + "/host2/target2:0:0/2:0:0:0";

class UfsPathTest : public PrivateRootTest {
  protected:
    void PlaceDisk(const std::string& scsi) {
        MakeDirectory(scsi + "/block/sda");
        WriteLink("/sys/block/sda", ".." + scsi.substr(4) + "/block/sda");
    }

    OpenDescriptorsUnchanged descriptors_;
    LogCapture log_;
};

TEST(ParseSysfsUintTest, NumberFillsTheTextAndFitsTheField) {
    const struct {
        const char* text;
        uint64_t max, number;
    } numbers[] = {
        {"0x1F", 0xFF, 31},       {"0X1f", 0xFF, 31},
        {"010", 0xFF, 10},        {" \t\n\v\f\r7", 0xFF, 7},
        {"+7", 0xFF, 7},          {"0xFF", 0xFF, 255},
        {"65535", 0xFFFF, 65535}, {"18446744073709551615", ~0ULL, 18446744073709551615ULL}};
    for (const auto& c : numbers) EXPECT_EQ(ParseSysfsUint(c.text, c.max), c.number) << c.text;
    for (const std::string text : {"-1", " -0", "12abc", "12 ", "1F", "0x", "0x-1", "x1", " ", "",
                                   "18446744073709551616", "0x10000000000000000"}) {
        EXPECT_EQ(ParseSysfsUint(text, ~0ULL), std::nullopt) << text;
    }
    EXPECT_EQ(ParseSysfsUint(std::string("7\0", 2), ~0ULL), std::nullopt);
    EXPECT_EQ(ParseSysfsUint("0x100", 0xFF), std::nullopt);
    EXPECT_EQ(ParseSysfsUint("65536", 0xFFFF), std::nullopt);
}

TEST_F(UfsPathTest, FileIsItsFirstLineTrimmed) {
    const std::pair<std::string, std::string> cases[] = {
        {"  0x10 \n", "0x10"},
        {"abc\ndef\n", "abc"},
        {" \t\v\f\rx\r\f\v\t ", "x"},
        {" \n", ""},
        {"a \t b", "a \t b"},
        {"\nabc", ""},
        {std::string("A\0B\n", 4), std::string("A\0B", 3)},
        {std::string(65536, 'x'), std::string(65536, 'x')},
        {std::string(65537, 'x'), ""},
        {"", ""}};
    UfsInfo ufs("/dev/block/sda");
    for (const auto& [content, line] : cases) {
        WriteFile("/sys/file", content);
        EXPECT_EQ(ufs.ReadSysfsFile("/sys/file"), line);
    }
    EXPECT_EQ(ufs.ReadSysfsFile("/sys/missing"), "");
    EXPECT_EQ(ufs.ReadSysfsFile("/sys"), "");  // opens, but cannot be read
}

TEST_F(UfsPathTest, HostIsTheParentOfTheNearestNameOfTen) {
    const std::pair<std::string, std::string> cases[] = {
        {kScsi, kHost},
        {"/sys/c/host12/scsi_host", "/sys/c"},
        {"/sys/c/host0/1/2/3/4/5/6/7/8/9", "/sys/c"},
        {"/sys/c/host0/1/2/3/4/5/6/7/8/9/10", ""},
        {"/sys/scsi_host", ""}};
    for (const auto& [scsi, host] : cases) {
        SCOPED_TRACE(scsi);
        ClearPrivateRoot();
        PlaceDisk(scsi);
        UfsInfo ufs("/dev/block/sda");
        std::string path = "untouched";
        EXPECT_EQ(ufs.GetUfsHostPath(&path), !host.empty());
        EXPECT_EQ(path, host.empty() ? "untouched" : host);
        EXPECT_THAT(log_.Take(),
                    ElementsAre("I Found UFS SCSI device path: " + scsi,
                                host.empty() ? "E Could not find UFS host path from " + scsi
                                             : "I Found UFS host path: " + host));
        EXPECT_TRUE(ufs.GetUfsScsiDevicePath(&path));
        EXPECT_EQ(path, scsi);
        EXPECT_THAT(log_.Take(), ElementsAre("I Found UFS SCSI device path: " + scsi));
    }
}

TEST_F(UfsPathTest, LinkThatLeadsNowhereIsLogged) {
    MakeDirectory("/sys/block/directory");
    WriteLink("/sys/block/dangling", "nowhere");
    const std::pair<std::string, std::string> cases[] = {
        {"/dev/block/missing", R"(E "/sys/block/missing" is not a symlink.)"},
        {"directory", R"(E "/sys/block/directory" is not a symlink.)"},
        {"/dev/block/", R"(E "/sys/block/" is not a symlink.)"},
        {R"(/dev/s"d\a)", R"(E "/sys/block/s\"d\\a" is not a symlink.)"},
        {"/dev/dangling",
         "E Failed to get canonical path for \"/sys/block/dangling\": "
         "No such file or directory"}};
    std::string path = "untouched";
    for (const auto& [device, log] : cases) {
        UfsInfo ufs(device.c_str());
        EXPECT_FALSE(ufs.GetUfsScsiDevicePath(&path));
        EXPECT_FALSE(ufs.GetUfsHostPath(&path));
        EXPECT_THAT(log_.Take(), ElementsAre(log, log));
    }
    EXPECT_FALSE(UfsInfo(nullptr).GetUfsHostPath(&path));
    EXPECT_THAT(log_.Take(), IsEmpty());
    EXPECT_EQ(path, "untouched");
}

TEST_F(UfsPathTest, DirectoriesAreLookedForOnce) {
    UfsInfo lost("/dev/block/sda");
    EXPECT_THAT(log_.Take(), IsEmpty());
    EXPECT_FALSE(lost.GetUfsHealthInfo().has_value());
    EXPECT_THAT(log_.Take(), ElementsAre(R"(E "/sys/block/sda" is not a symlink.)",
                                         R"(E "/sys/block/sda" is not a symlink.)"));
    PlaceDisk(kScsi);
    WriteFile(kScsi + "/unit_descriptor/provisioning_type", "2");
    EXPECT_EQ(lost.GetDiscardReadValue(), "undefined");
    EXPECT_EQ(lost.GetUfsControllerId().type, "");
    testing::internal::CaptureStdout();
    EXPECT_FALSE(lost.DumpInfo());
    EXPECT_FALSE(lost.DumpHealthInfo());
    lost.GetPowerInfo();
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Failed to get UFS information.\nFailed to get UFS health info\n"
              "Could not determine UFS host path.\n");
    EXPECT_THAT(log_.Take(), IsEmpty());

    UfsInfo ufs("/dev/block/sda");
    EXPECT_EQ(ufs.GetDiscardReadValue(), "any");
    EXPECT_EQ(log_.Take().size(), 3U);
    EXPECT_EQ(ufs.GetUfsControllerId().type, "UFS");
    EXPECT_THAT(log_.Take(), IsEmpty());
}

}  // namespace
}  // namespace orvane::tavisk::disk_info
