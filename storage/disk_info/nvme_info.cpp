#include <base/unique_fd.h>
#include <disk_info/diagnostics.h>
#include <disk_info/nvme_info.h>
#include <fcntl.h>
#include <sys/ioctl.h>

#include <array>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <span>

namespace orvane::tavisk::disk_info {
namespace {

constexpr uint8_t kGetLogPage = 0x02;
constexpr uint8_t kIdentify = 0x06;
constexpr uint8_t kGetFeatures = 0x0A;

constexpr int kIdentifyNamespace = 0;
constexpr int kIdentifyController = 1;
constexpr int kHealthLog = 2;
constexpr uint32_t kPowerManagementFeature = 2;
constexpr uint32_t kAllNamespaces = 0xFFFFFFFF;

constexpr int kIdentifySize = 4096;
constexpr int kHealthLogSize = 512;

// A data buffer as GetNvmeIdentifyData requires it.
struct alignas(4096) Page {
    std::array<uint8_t, 4096> bytes = {};
};

// Little-endian number at `offset`. 0: it does not lie within `bytes`.
template <typename T>
T Load(std::span<const uint8_t> bytes, size_t offset) {
    if (offset > bytes.size() || bytes.size() - offset < sizeof(T)) return 0;
    T value = 0;
    for (size_t i = 0; i < sizeof(T); ++i) {
        value = static_cast<T>(value | static_cast<T>(bytes[offset + i]) << 8 * i);
    }
    return value;
}

// Copies the text at `offset`, of kSize - 1 bytes or up to its first NUL, into the zeroed `text`.
template <size_t kSize>
void CopyText(const Page& page, size_t offset, char (&text)[kSize]) {
    static_assert(kSize > 1 && kSize <= sizeof(Page));
    if (offset > sizeof(Page) - (kSize - 1)) return;
    const char* const field = reinterpret_cast<const char*>(page.bytes.data()) + offset;
    memcpy(text, field, strnlen(field, kSize - 1));
}

// Opens the device node for reading and writing, as passthrough requires. Does not set
// close-on-exec and does not retry. Empty descriptor: the open failed and the reason was printed.
base::UniqueFd OpenNode(const char* path) {
    base::UniqueFd fd(open(path, O_RDWR));
    if (!fd) PrintError("open");
    return fd;
}

nvme_passthru_cmd IdentifyCommand(void* data, int data_len, int cns) {
    nvme_passthru_cmd command = {};
    command.opcode = kIdentify;
    command.addr = reinterpret_cast<uintptr_t>(data);
    command.data_len = static_cast<uint32_t>(data_len);
    command.cdw10 = static_cast<uint32_t>(cns);
    return command;
}

// NOPS, bit 1 of byte 3 of the power state descriptor: set if the state is non-operational.
bool IsOperational(const Page& controller, uint32_t power_state) {
    return (Load<uint8_t>(controller.bytes, 2048 + 32 * power_state + 3) & 0x02) == 0;
}

}  // namespace

int NvmeAdminCommand(int fd, nvme_passthru_cmd* cmd) {
    return ioctl(fd, NVME_IOCTL_ADMIN_CMD, cmd);
}

int NvmeInfo::GetType() const {
    return kDiskTypeNvme;
}

int NvmeInfo::GetNvmeIdentifyData(void* data, int data_len, int cns) {
    const base::UniqueFd fd = OpenNode(device_path);
    if (!fd) return -1;
    nvme_passthru_cmd command = IdentifyCommand(data, data_len, cns);
    if (cns != kIdentifyController) {
        const int namespace_id = ioctl(fd.get(), NVME_IOCTL_ID);
        if (namespace_id < 0) {
            PrintError("ioctl(NVME_IOCTL_ID)");
            return -1;
        }
        command.nsid = static_cast<uint32_t>(namespace_id);
    }
    const int result = NvmeAdminCommand(fd.get(), &command);
    // An NVMe status does not set errno, so nothing is printed for it.
    if (result == -1) PrintError("ioctl");
    return result == 0 ? 0 : -1;
}

int NvmeInfo::GetNvmeLogPage(void* data, int data_len, int log_id) {
    const base::UniqueFd fd = OpenNode(device_path);
    if (!fd) return -1;
    nvme_passthru_cmd command = {};
    command.opcode = kGetLogPage;
    command.nsid = kAllNamespaces;
    command.addr = reinterpret_cast<uintptr_t>(data);
    command.data_len = static_cast<uint32_t>(data_len);
    // NUMDL, bits 31:16: the lower half of the number of dwords minus 1. NUMDU stays 0.
    command.cdw10 = static_cast<uint32_t>(data_len / 4 - 1) << 16 | static_cast<uint32_t>(log_id);
    // Unlike Identify, this prints for an NVMe status too, although errno is not set. Required
    // behaviour.
    if (NvmeAdminCommand(fd.get(), &command) != 0) {
        PrintError("ioctl");
        return -1;
    }
    return 0;
}

NvmeInfoData NvmeInfo::GetNvmeControllerId() {
    NvmeInfoData data;
    Page page;
    if (GetNvmeIdentifyData(&page, kIdentifySize, kIdentifyController) != 0) return data;

    memcpy(data.type, "NVMe", sizeof(data.type));
    CopyText(page, 24, data.model_number);
    CopyText(page, 4, data.serial_number);
    CopyText(page, 64, data.firmware_revision);
    data.version = Load<uint32_t>(page.bytes, 80);
    data.version_major = static_cast<int32_t>(data.version >> 16);
    data.version_minor = static_cast<int32_t>(data.version >> 8 & 0xFF);
    data.version_tertiary = static_cast<int32_t>(data.version & 0xFF);
    data.ffu_support = (Load<uint8_t>(page.bytes, 256) & 0x04) != 0;
    return data;
}

std::optional<NvmeHealthData> NvmeInfo::GetNvmeHealthInfo() {
    Page page;
    if (GetNvmeLogPage(&page, kHealthLogSize, kHealthLog) != 0) return std::nullopt;

    NvmeHealthData data;
    data.percentage_used = Load<uint8_t>(page.bytes, 5);
    data.available_spare = Load<uint8_t>(page.bytes, 3);
    data.available_spare_threshold = Load<uint8_t>(page.bytes, 4);
    data.critical_warning = Load<uint8_t>(page.bytes, 0);
    data.data_units_written = Load<uint64_t>(page.bytes, 48);
    data.media_errors = Load<uint64_t>(page.bytes, 160);
    data.error_log_entries = Load<uint64_t>(page.bytes, 176);
    return data;
}

NvmePowerData NvmeInfo::GetNvmePowerInfo() {
    const NvmePowerData unknown;
    const base::UniqueFd fd = OpenNode(device_path);
    if (!fd) return unknown;
    nvme_passthru_cmd features = {};
    features.opcode = kGetFeatures;
    features.cdw10 = kPowerManagementFeature;
    Page page;
    nvme_passthru_cmd identify = IdentifyCommand(&page, kIdentifySize, kIdentifyController);
    if (NvmeAdminCommand(fd.get(), &features) != 0 || NvmeAdminCommand(fd.get(), &identify) != 0) {
        PrintError("ioctl");
        return unknown;
    }
    const uint32_t power_state = features.result & 0x1F;
    const uint8_t last_power_state = Load<uint8_t>(page.bytes, 263);  // NPSS, 0's based
    if (power_state > last_power_state) {
        PrintDiagnostic({"Error: Current power state ", std::to_string(power_state),
                         " is invalid or exceeds NPSS."});
        return unknown;
    }
    return {.current_power_state = static_cast<int32_t>(power_state),
            .is_operational = IsOperational(page, power_state)};
}

std::string NvmeInfo::GetDiscardReadValue() {
    Page page;
    if (GetNvmeIdentifyData(&page, kIdentifySize, kIdentifyNamespace) != 0) return "undefined";
    // DLFEAT, Deallocate Logical Block Features: bits 2:0 are the read behaviour.
    switch (Load<uint8_t>(page.bytes, 33) & 0x07) {
        case 1:
            return "0";
        case 2:
            return "1";
        default:
            return "undefined";
    }
}

bool NvmeInfo::DumpInfo() {
    const NvmeInfoData data = GetNvmeControllerId();
    printf("Type: %s\n", data.type);
    printf("Serial Number: %s\n", data.serial_number);
    printf("Model Number: %s\n", data.model_number);
    printf("Firmware Revision: %s\n", data.firmware_revision);
    printf("NVMe version: %d.%d.%d [0x%x]\n", data.version_major, data.version_minor,
           data.version_tertiary, data.version);
    printf("FFU support: %s\n", data.ffu_support ? "true" : "false");
    const uint64_t size_bytes = GetSize();
    printf("Size: %" PRIu64 " (%.1f GB)\n", size_bytes, static_cast<double>(size_bytes) / 1e9);
    return true;
}

bool NvmeInfo::DumpHealthInfo() {
    const std::optional<NvmeHealthData> data = GetNvmeHealthInfo();
    if (!data) {
        printf("Failed to get NVMe health info\n");
        return false;
    }
    printf("Percentage Used: %d\n", data->percentage_used);
    printf("Available Spare: %d\n", data->available_spare);
    printf("Available Spare Threshold: %d\n", data->available_spare_threshold);
    printf("Critical Warning: %d\n", data->critical_warning);
    const double terabytes = static_cast<double>(data->data_units_written) * 1000 * 512 / 1e12;
    printf("Data Units Written: %" PRIu64 " [%.0f TB]\n", data->data_units_written, terabytes);
    printf("Discard Read Value: %s\n", GetDiscardReadValue().c_str());
    printf("Number of Media Errors: %" PRIu64 "\n", data->media_errors);
    printf("Number of Error Log Entries: %" PRIu64 "\n", data->error_log_entries);
    return true;
}

void NvmeInfo::GetPowerInfo() {
    const NvmePowerData data = GetNvmePowerInfo();
    if (data.current_power_state == -1) {
        printf("Failed to get complete NVMe power info\n");
        return;
    }
    printf("Current Power State: %d\n", data.current_power_state);
    printf("Is operational: %s\n", data.is_operational ? "Yes" : "No");
}

}  // namespace orvane::tavisk::disk_info
