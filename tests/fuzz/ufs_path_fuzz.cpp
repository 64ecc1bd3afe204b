// The two directories of a UFS disk, in trees of directories, links and files that the input makes.
#include <disk_info/ufs_info.h>

#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "fuzz.h"

using orvane::tavisk::disk_info::UfsInfo;
namespace fs = std::filesystem;

namespace {

const std::string kLong(250, 'h');  // some of these make a path too long
const std::string kNames[] = {"sda",     "block", "host0", "hostx",  "host", "scsi_host",
                              "0:0:0:0", "a",     "b",     "Host0",  "ho",   kLong,
                              "..",      ".",     "",      "nowhere"};
constexpr size_t kOrdinaryNames = 12;
constexpr int kMostSteps = 64;

std::string LinkTarget(Input* input, const std::vector<fs::path>& directories) {
    const uint8_t choice = input->Byte();
    // Every other link leads to a directory that is there, or below one.
    std::string target =
        choice % 2 == 0 ? directories[choice / 2 % directories.size()].string() + "/" : "";
    for (int names = input->Byte() % 8; names > 0; --names) {
        target += kNames[input->Byte() % std::size(kNames)] + "/";
    }
    if (!target.empty()) target.pop_back();
    return target;
}

// Each step names a directory, by its age, and what is made in it. All that is made lies below the
// private /sys: directories are only entered where they were made, never through a link.
void MakeTree(Input* input) {
    std::vector<fs::path> directories = {"/sys", "/sys/block"};
    fs::create_directory("/sys/block");
    std::error_code error;
    for (int step = 0; step < kMostSteps && !input->empty(); ++step) {
        const size_t age = input->Byte() % directories.size();
        const uint8_t choice = input->Byte();
        const fs::path path =
            directories[directories.size() - 1 - age] / kNames[choice / 4 % kOrdinaryNames];
        switch (choice % 4) {
            case 0:
                fs::create_symlink(LinkTarget(input, directories), path, error);
                break;
            case 1:
                if (!fs::exists(fs::symlink_status(path, error))) WriteFile(path, "");
                break;
            default:
                if (fs::create_directory(path, error)) directories.push_back(path);
        }
    }
}

// The same, told by the file-system library; "" where there is none.
fs::path ScsiDevice(const std::string& name) {
    std::error_code error;
    const fs::path link = "/sys/block/" + name;
    if (!fs::is_symlink(fs::symlink_status(link, error))) return "";
    const fs::path disk = fs::canonical(link, error);
    return disk.parent_path().parent_path();
}

fs::path Host(fs::path current) {
    for (int names = 0; names < 10 && current.has_parent_path(); ++names) {
        if (current.filename().string().starts_with("host")) return current.parent_path();
        current = current.parent_path();
    }
    return "";
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    StartFuzzing();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    const std::string name = kNames[input.Byte() % std::size(kNames)];
    MakeTree(&input);

    const std::string node = "/dev/block/" + name;
    UfsInfo ufs(node.c_str());
    std::string scsi = "untouched";
    std::string host = "untouched";
    const bool scsi_found = ufs.GetUfsScsiDevicePath(&scsi);
    const bool host_found = ufs.GetUfsHostPath(&host);

    const fs::path wanted_scsi = ScsiDevice(name);
    const fs::path wanted_host = Host(wanted_scsi);
    EXPECT_EQ(scsi_found, !wanted_scsi.empty());
    EXPECT_EQ(host_found, !wanted_host.empty());
    EXPECT_EQ(scsi, scsi_found ? wanted_scsi.string() : "untouched");
    EXPECT_EQ(host, host_found ? wanted_host.string() : "untouched");

    for (const auto& entry : fs::directory_iterator("/sys")) fs::remove_all(entry.path());
    return 0;
}
