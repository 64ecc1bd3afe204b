#include <base/escape.h>
#include <base/retry.h>
#include <disk_info/diagnostics.h>
#include <disk_info/filesystem_info.h>
#include <disk_info/sysfs.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <utility>

namespace orvane::tavisk::disk_info {
namespace {

// Target of the link, not resolved further. Empty: it cannot be read; the reason is printed.
std::optional<std::string> ReadLink(const std::string& link) {
    char target[PATH_MAX] = {};
    const ssize_t length =
        base::RetryOnInterrupt([&] { return readlink(link.c_str(), target, sizeof(target)); });
    if (length < 0) {
        const int error = errno;
        PrintDiagnostic({"Error reading symlink ", link, ": ", strerror(error)});
        return std::nullopt;
    }
    return std::string(target, static_cast<size_t>(length));
}

// Name of the device-mapper device that userdata's link points to. Empty: the reason is printed.
std::optional<std::string> MapperDevice(const std::string& link) {
    const std::optional<std::string> target = ReadLink(link);
    if (!target) return std::nullopt;
    std::string name = LastComponent(*target);
    if (!name.starts_with("dm-")) {
        PrintDiagnostic({"Symlink target ", base::Escaped(*target), " is not in 'dm-*' format."});
        return std::nullopt;
    }
    return name;
}

// Name of the device that metadata's link points to. Empty: the reason is printed.
std::optional<std::string> PlainDevice(const std::string& link) {
    const std::optional<std::string> target = ReadLink(link);
    if (!target) return std::nullopt;
    return LastComponent(*target);
}

// False also if the status of `path` cannot be read.
bool Exists(const std::string& path) {
    struct stat status;
    return base::RetryOnInterrupt([&] { return stat(path.c_str(), &status); }) == 0;
}

}  // namespace

FilesystemInfo::FilesystemInfo(const char* partition, std::string sysfs_root, std::string userdata,
                               std::string metadata)
    : DiskInfo(partition),
      ext4_sysfs_root(std::move(sysfs_root)),
      userdata_link(std::move(userdata)),
      metadata_link(std::move(metadata)) {}

int FilesystemInfo::GetType() const {
    return kDiskTypeFilesystem;
}

std::optional<FilesystemInfoData> FilesystemInfo::GetFilesystemInfo() const {
    const std::string_view partition = device_path;
    if (partition != "userdata" && partition != "metadata") {
        PrintDiagnostic({"sysfs path not supported for ", base::Escaped(partition)});
        return std::nullopt;
    }
    const std::optional<std::string> device =
        partition == "userdata" ? MapperDevice(userdata_link) : PlainDevice(metadata_link);

    FilesystemInfoData data;
    if (device) data.sysfs_path = ext4_sysfs_root + "/" + *device;
    // If the device was not found, this prints a second message, with an empty path.
    if (!Exists(data.sysfs_path)) {
        PrintDiagnostic({"sysfs path not found at ", base::Escaped(data.sysfs_path)});
        return std::nullopt;
    }
    const struct {
        const char* name;
        std::string* line;
    } files[] = {{"/errors_count", &data.errors_count},
                 {"/last_error_func", &data.last_error_func},
                 {"/last_error_errcode", &data.last_error_errcode}};
    for (const auto& file : files) {
        const std::string path = data.sysfs_path + file.name;
        std::optional<std::string> line = ReadFirstLine(path);
        if (!line) {
            PrintDiagnostic({"Could not open file: ", base::Escaped(path)});
            return std::nullopt;
        }
        *file.line = std::move(*line);
    }
    return data;
}

bool FilesystemInfo::DumpFilesystemInfo() {
    const std::optional<FilesystemInfoData> data = GetFilesystemInfo();
    if (!data) return false;
    printf("%s (%s): Error Count: %s, Last Error From: %s, Last Error Code: %s\n",
           LastComponent(data->sysfs_path).c_str(), device_path, data->errors_count.c_str(),
           data->last_error_func.c_str(), data->last_error_errcode.c_str());
    return true;
}

}  // namespace orvane::tavisk::disk_info
