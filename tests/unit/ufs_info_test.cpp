// A UFS disk in sysfs: its directories, its records and the results of the calls.
#include <disk_info/ufs_info.h>
#include <nvme_ioctl.h>
#include <storage_test.h>

#include <utility>
#include <vector>

namespace {

constexpr char kReport[] =
    "Type: UFS\nVendor: ACME\nModel Number: Fast 1\nFirmware Revision: r2\nFFU Support: true\n"
    "Spec Version: 0x0310\nProvisioning Type: 0x3\nWrite Booster Support: 1\n"
    "Write Booster Enabled: true\nWrite Booster Buffer Preserve User Space En: 0x5\n"
    "Write Booster Buffer Type: 0x2\nWrite Booster Fraction: 0.7500\n"
    "Write Booster Current Alloc Units: 0x100000\nWrite Booster Max Alloc Units: 0x200000\n"
    "UFS Features: 0x07\nExtended Feature Support: 0x00000101\nGear: HS_GEAR4\n"
    "Rate: HS_RATE_B\nData Lanes: 2\nSize: 512110190592 (512.1 GB)\n"
    "Pre End of Life Info: 0x01\nDevice Life Time Estimation A: 0x08\n"
    "Device Life Time Estimation B: 0x09\nDiscard Read Value: 0\nTotal Number of Errors: 31\n"
    "UFS Power Info:\n  Link State: ACTIVE\n  Is active: Yes\nlink_active: true\n";

// The report with other lines in place of those of the same names.
std::string ReportWith(const std::string& lines) {
    std::string report = kReport;
    for (size_t begin = 0, end; begin < lines.size(); begin = end + 1) {
        end = lines.find('\n', begin);
        const std::string name = lines.substr(begin, lines.find(':', begin) + 1 - begin);
        const size_t line = report.find(name);
        report.replace(line, report.find('\n', line) - line, lines.substr(begin, end - begin));
    }
    return report;
}

class UfsInfoTest : public StorageTest {
  protected:
    // Everything that the operations of a new object print and return.
    std::string Report() {
        FakeNvme block_size;
        UfsInfo ufs("/dev/block/sda");
        const UfsInfoData data = ufs.GetUfsControllerId();
        if (!data.vendor.empty()) block_size.ExpectSize(512110190592);
        return Printed([&] {
            EXPECT_EQ(ufs.DumpInfo(), !data.vendor.empty());
            EXPECT_EQ(ufs.DumpHealthInfo(), ufs.GetUfsHealthInfo().has_value());
            ufs.GetPowerInfo();
            printf("link_active: %s\n", data.link_active ? "true" : "false");
        });
    }
};

TEST_F(UfsInfoTest, HostPathIsTheParentOfTheNearestHostDirectoryWithinTenLevels) {
    const std::pair<std::string, std::string> cases[] = {
        {kUnit, kController},
        {"/sys/c/host12/scsi_host", "/sys/c"},
        {"/sys/c/host0/1/2/3/4/5/6/7/8/9", "/sys/c"},
        {"/sys/c/host0/1/2/3/4/5/6/7/8/9/10", ""},
        {"/sys/scsi_host", ""}};
    for (const auto& [unit, host] : cases) {
        SCOPED_TRACE(unit);
        ClearPrivateRoot();
        PlaceUnit(unit);
        UfsInfo ufs("/dev/block/sda");
        std::string path = "untouched";
        EXPECT_EQ(ufs.GetUfsHostPath(&path), !host.empty());
        EXPECT_EQ(path, host.empty() ? "untouched" : host);
        EXPECT_THAT(log_.Take(),
                    ElementsAre("I Found UFS SCSI device path: " + unit,
                                host.empty() ? "E Could not find UFS host path from " + unit
                                             : "I Found UFS host path: " + host));
    }
}

TEST_F(UfsInfoTest, LinkThatLeadsNowhereIsLogged) {
    MakeDirectory("/sys/block/directory");
    WriteLink("/sys/block/dangling", "nowhere");
    const std::pair<const char*, const char*> cases[] = {
        {"/dev/block/missing", R"(E "/sys/block/missing" is not a symlink.)"},
        {"directory", R"(E "/sys/block/directory" is not a symlink.)"},
        {R"(/dev/s"d\a)", R"(E "/sys/block/s\"d\\a" is not a symlink.)"},
        {"/dev/dangling",
         R"(E Failed to get canonical path for "/sys/block/dangling": No such file or directory)"}};
    std::string path = "untouched";
    for (const auto& [device, log] : cases) {
        EXPECT_FALSE(UfsInfo(device).GetUfsHostPath(&path));
        EXPECT_THAT(log_.Take(), ElementsAre(log));
    }
    EXPECT_FALSE(UfsInfo(nullptr).GetUfsHostPath(&path));
    EXPECT_THAT(log_.Take(), ElementsAre());
    EXPECT_EQ(path, "untouched");
}

TEST_F(UfsInfoTest, DirectoriesAreSearchedOncePerObject) {
    UfsInfo lost("/dev/block/sda"), ufs("/dev/block/sda");
    EXPECT_THAT(log_.Take(), ElementsAre());
    EXPECT_FALSE(lost.GetUfsHealthInfo().has_value());
    EXPECT_THAT(log_.Take(), ElementsAre(R"(E "/sys/block/sda" is not a symlink.)",
                                         R"(E "/sys/block/sda" is not a symlink.)"));
    PlaceDevice();
    EXPECT_EQ(lost.GetDiscardReadValue(), "undefined");
    EXPECT_EQ(lost.GetUfsControllerId().type, "");
    EXPECT_EQ(Printed([&] {
                  EXPECT_FALSE(lost.DumpInfo());
                  EXPECT_FALSE(lost.DumpHealthInfo());
                  lost.GetPowerInfo();
              }),
              "Failed to get UFS information.\nFailed to get UFS health info\n"
              "Could not determine UFS host path.\n");
    EXPECT_THAT(log_.Take(), ElementsAre());

    EXPECT_EQ(ufs.GetDiscardReadValue(), "0");
    EXPECT_EQ(log_.Take().size(), 3U);
    EXPECT_EQ(ufs.GetUfsControllerId().type, "UFS");
    EXPECT_THAT(log_.Take(), ElementsAre());
}

TEST_F(UfsInfoTest, FilesAreReadInOrder) {
    struct Recorder : UfsInfo {
        using UfsInfo::UfsInfo;
        std::string ReadSysfsFile(const std::string& path) override {
            reads.push_back(path);
            return UfsInfo::ReadSysfsFile(path);
        }
        std::vector<std::string> reads;
    } ufs("/dev/block/sda");
    PlaceDevice();
    EXPECT_EQ(ufs.GetUfsControllerId().type, "UFS");
    EXPECT_TRUE(ufs.GetUfsHealthInfo().has_value());
    std::vector<std::string> paths;
    for (const auto& [name, content] : kUfsFiles) paths.push_back(UfsFile(name));
    EXPECT_EQ(ufs.reads, paths);
}

TEST_F(UfsInfoTest, EachFileReachesItsFieldsAlone) {
    const char no_fraction[] = "Write Booster Fraction: 0.0000\n";
    const char no_link[] = "  Is active: No\nlink_active: false\n";
    const struct {
        std::string file;      // its last component
        std::string contents;  // between bars
        std::string lines;     // of the report that differ then
    } cases[] = {
        {"ioerr_cnt", "|x|-1|0x10000000000000000", "Total Number of Errors: 0\n"},
        {"ioerr_cnt", "0xFFFFFFFFFFFFFFFE", "Total Number of Errors: 18446744073709551614\n"},
        {"provisioning_type", "|3x|0x103|-3",
         "Provisioning Type: 0x0\nDiscard Read Value: undefined\n"},
        {"provisioning_type", "2", "Provisioning Type: 0x2\nDiscard Read Value: any\n"},
        {"provisioning_type", "0xFF", "Provisioning Type: 0xff\nDiscard Read Value: undefined\n"},
        {"ext_feature_sup", "|0x101x|0x100000101",
         "FFU Support: false\nWrite Booster Support: 0\nExtended Feature Support: \n"},
        {"ext_feature_sup", "0xFFFFFEFF",
         "Write Booster Support: 0\nExtended Feature Support: 0xFFFFFEFF\n"},
        {"ext_feature_sup", "256", "FFU Support: false\nExtended Feature Support: 256\n"},
        {"specification_version", "|3.1|0x10310", "Spec Version: 0x0000\n"},
        {"wb_presv_us_en", "|x|0x105", "Write Booster Buffer Preserve User Space En: 0x0\n"},
        {"wb_sup_wb_type", "|x|0x102|0",
         "Write Booster Buffer Type: 0x0\nWrite Booster Fraction: 0.3750\n"
         "Write Booster Current Alloc Units: 0x80000\n"},
        {"wb_sup_wb_type", "1", "Write Booster Buffer Type: 0x1\n"},
        {"link_state", "active", std::string("  Link State: active\n") + no_link},
        {"link_state", "ACTIVE2", std::string("  Link State: ACTIVE2\n") + no_link},
        {"wb_on", "|0|true|0x100000001", "Write Booster Enabled: false\n"},
        {"wb_on", "0x2", ""},
        {"wb_shared_alloc_units", "|x|0x100100000",
         std::string("Write Booster Current Alloc Units: 0x0\n") + no_fraction},
        {"allocation_unit_size", "|x|0x100002000", no_fraction},
        {"segment_size", "|x|0x100006000", no_fraction},
        {"size", "|x|0|18446744073709551616", no_fraction},
        {"wb_max_alloc_units", "|x|0x100200000", "Write Booster Max Alloc Units: 0x0\n"},
        {"life_time_estimation_a", "", "Device Life Time Estimation A: \n"}};
    PlaceDevice();
    WriteFile(UfsFile("S/unit_descriptor/wb_buf_alloc_units"),
              "0x00080000");  // where the type is 0
    for (const auto& c : cases) {
        const auto& [name, original] = *std::ranges::find_if(
            kUfsFiles, [&](const auto& file) { return file.first.ends_with("/" + c.file); });
        std::istringstream contents(c.contents + "|");
        for (std::string content; std::getline(contents, content, '|');) {
            SCOPED_TRACE(c.file + " holds " + content);
            WriteFile(UfsFile(name), content);
            EXPECT_EQ(Report(), ReportWith(c.lines));
        }
        WriteFile(UfsFile(name), original);
    }
    WriteFile(UfsFile("S/vendor"), "");
    WriteFile(UfsFile("H/health_descriptor/eol_info"), "");
    EXPECT_EQ(Report(),
              "Failed to get UFS information.\nFailed to get UFS health info\n"
              "UFS Power Info:\n  Link State: ACTIVE\n  Is active: Yes\nlink_active: true\n");
}

// Unsigned values with the highest bit set are sent with the same bits.
TEST_F(UfsInfoTest, RecordsAreSent) {
    PlaceDevice();
    WriteFile(UfsFile("S/ioerr_cnt"), "0x8000000000000007");
    WriteFile(UfsFile("H/device_descriptor/wb_shared_alloc_units"), "0x80000001");
    // 6 * 2^57 sectors, of which the buffer has half
    WriteFile("/sys/block/sda/size", "864691128455135232");
    FakeNvme block_size;
    block_size.ExpectSize(4398046513152);
    EXPECT_EQ(Info(),
              "ufs|UFS|ACME|Fast 1|r2|1|784|3|1|1|1|2|0.5|-2147483647|2097152|0x07|0x00000101"
              "|HS_GEAR4|HS_RATE_B|2|4398046513152");
    EXPECT_EQ(Health(), "ufs|0x01|0x08|0x09|-9223372036854775801|0");
    EXPECT_EQ(Power(), "ufs|ACTIVE|1");

    WriteLink("/sys/block/sda", "sda");  // a loop: the directories are not found
    block_size.ExpectSize(2);
    EXPECT_EQ(Info(), "ufs|||||0|0|0|0|0|0|0|0|0|0||||||2");
    EXPECT_EQ(Health(), kUnavailable);
    EXPECT_EQ(Power(), "ufs||0");
}

}  // namespace
