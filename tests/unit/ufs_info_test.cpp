#include <device_tree.h>
#include <disk_info/ufs_info.h>

#include <algorithm>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace orvane::tavisk::disk_info {
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

// Directories given, files held in memory.
class FilesInMemory : public UfsInfo {
  public:
    FilesInMemory() : UfsInfo("/dev/block/sda") {
        files["S/unit_descriptor/wb_buf_alloc_units"] = "0x00080000";  // where the type is 0
    }
    void InitializePaths() override {
        scsi_device_path = "S";
        ufs_host_path = "H";
    }
    uint64_t GetSize() override { return 512110190592; }
    std::string ReadSysfsFile(const std::string& path) override {
        reads.push_back(path);
        return files[path];
    }
    // All that the operations tell.
    std::string Report() {
        testing::internal::CaptureStdout();
        DumpInfo();
        DumpHealthInfo();
        GetPowerInfo();
        return testing::internal::GetCapturedStdout() +
               (GetUfsControllerId().link_active ? "link_active: true\n" : "link_active: false\n");
    }

    // The content of the one file whose path ends in `name`.
    std::string& File(const std::string& name) {
        return std::find_if(files.begin(), files.end(),
                            [&](const auto& file) { return file.first.ends_with("/" + name); })
            ->second;
    }

    std::map<std::string, std::string> files{kUfsFiles.begin(), kUfsFiles.end()};
    std::vector<std::string> reads;
};

TEST(UfsInfoTest, FilesAreReadInOrder) {
    FilesInMemory ufs;
    EXPECT_EQ(ufs.GetUfsControllerId().type, "UFS");
    EXPECT_TRUE(ufs.GetUfsHealthInfo().has_value());
    std::vector<std::string> paths;
    paths.reserve(kUfsFiles.size());
    for (const auto& [path, content] : kUfsFiles) paths.push_back(path);
    EXPECT_EQ(ufs.reads, paths);
}

// The report with the lines of the same names in place of its own.
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

TEST(UfsInfoTest, EachFileReachesItsFieldsAlone) {
    const char no_fraction[] = "Write Booster Fraction: 0.0000\n";
    const char no_link[] = "  Is active: No\nlink_active: false\n";
    const struct {
        std::string file;      // its last component
        std::string contents;  // between bars
        std::string lines;     // of the report that differ then
    } cases[] = {
        {"vendor", "XYZ", "Vendor: XYZ\n"},
        {"model", "", "Model Number: \n"},
        {"rev", "", "Firmware Revision: \n"},
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
        {"ufs_features", "", "UFS Features: \n"},
        {"specification_version", "|3.1|0x10310", "Spec Version: 0x0000\n"},
        {"wb_presv_us_en", "|x|0x105", "Write Booster Buffer Preserve User Space En: 0x0\n"},
        {"wb_sup_wb_type", "|x|0x102|0",
         "Write Booster Buffer Type: 0x0\nWrite Booster Fraction: 0.3750\n"
         "Write Booster Current Alloc Units: 0x80000\n"},
        {"wb_sup_wb_type", "1", "Write Booster Buffer Type: 0x1\n"},
        {"gear", "", "Gear: \n"},
        {"lane", "", "Data Lanes: \n"},
        {"rate", "", "Rate: \n"},
        {"link_state", "", std::string("  Link State: \n") + no_link},
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
        {"life_time_estimation_a", "", "Device Life Time Estimation A: \n"},
        {"life_time_estimation_b", "", "Device Life Time Estimation B: \n"}};
    for (const auto& c : cases) {
        std::istringstream contents(c.contents + "|");
        for (std::string content; std::getline(contents, content, '|');) {
            SCOPED_TRACE(c.file + " holds " + content);
            FilesInMemory ufs;
            ufs.File(c.file) = content;
            EXPECT_EQ(ufs.Report(), ReportWith(c.lines));
        }
    }
}

TEST(UfsInfoTest, NoVendorOrNoEndOfLifeTextIsAFailure) {
    FilesInMemory ufs;
    ufs.File("vendor") = "";
    ufs.File("eol_info") = "";
    EXPECT_EQ(ufs.Report(),
              "Failed to get UFS information.\nFailed to get UFS health info\n"
              "UFS Power Info:\n  Link State: ACTIVE\n  Is active: Yes\nlink_active: true\n");
    EXPECT_EQ(ufs.GetUfsControllerId().type, "UFS");
}

}  // namespace
}  // namespace orvane::tavisk::disk_info
