// An NVMe disk: reads identity, health, power state and discard behaviour with admin commands
// through the kernel's passthrough ioctl on the block device node, which must be opened for reading
// and writing. Nothing is cached, and no descriptor stays open between calls. Failures are printed
// to standard error in the form of perror(3), never logged; a failed open or command is not
// retried. GetSize is that of the base class. Layouts and field names: NVM Express Base
// Specification.
#pragma once

#include <disk_info/disk_info.h>
#include <linux/nvme_ioctl.h>

#include <optional>

namespace orvane::tavisk::disk_info {

// From the Identify Controller data structure. Texts keep the controller's padding and end at the
// first NUL. If the structure could not be read, every field is zero.
struct NvmeInfoData {
    char type[5] = {};               // "NVMe"; "" if the structure could not be read
    char model_number[41] = {};      // MN, bytes 24 to 63
    char serial_number[21] = {};     // SN, bytes 4 to 23
    char firmware_revision[9] = {};  // FR, bytes 64 to 71
    int32_t version_major = 0;       // VER, bits 31:16
    int32_t version_minor = 0;       // VER, bits 15:8
    int32_t version_tertiary = 0;    // VER, bits 7:0
    uint32_t version = 0;            // VER, bytes 80 to 83
    bool ffu_support = false;        // OACS, byte 256 bit 2: firmware commit and download
};

// From the SMART / Health Information log. Of the 128-bit counters the low 64 bits are read.
struct NvmeHealthData {
    int32_t percentage_used = 0;            // byte 5, percent of the expected life; can exceed 100
    int32_t available_spare = 0;            // byte 3, percent
    int32_t available_spare_threshold = 0;  // byte 4, percent
    int32_t critical_warning = 0;           // byte 0, bit field; 0: no warning
    uint64_t data_units_written = 0;        // bytes 48 to 63, units of 1000 * 512 bytes
    uint64_t media_errors = 0;              // bytes 160 to 175, number of errors
    uint64_t error_log_entries = 0;         // bytes 176 to 191, number of entries
};

// From Get Features, Power Management, and the power state descriptors of Identify Controller.
struct NvmePowerData {
    int32_t current_power_state = -1;  // PS, 0 to 31; -1: not known
    bool is_operational = false;       // NOPS is clear; false if the state is not known
};

// Submits one admin command and waits for its completion. 0: success; `cmd->result` holds dword 0
// of the completion. -1: the kernel rejected or failed the request; errno holds the reason.
// Positive: the NVMe status of the completion. Prints nothing.
[[nodiscard]] int NvmeAdminCommand(int fd, nvme_passthru_cmd* cmd);

class NvmeInfo : public DiskInfo {
  public:
    using DiskInfo::DiskInfo;

    int GetType() const override;
    void GetPowerInfo() override;
    bool DumpInfo() override;  // true even if the identity could not be read
    bool DumpHealthInfo() override;
    // "0": discarded blocks read as bytes 0x00; "1": as bytes 0xFF; "undefined": not reported or
    // not read.
    std::string GetDiscardReadValue() override;

    virtual NvmeInfoData GetNvmeControllerId();
    [[nodiscard]] virtual std::optional<NvmeHealthData> GetNvmeHealthInfo();
    virtual NvmePowerData GetNvmePowerInfo();

    // Read `data_len` bytes of a structure or log page into `data`. 0: success; -1: failure, `data`
    // is unchanged. `data` must be a zeroed, page-aligned page of 4096 bytes even if `data_len` is
    // smaller: some drives transfer a whole page for a request of 512 bytes.
    //
    // `cns` 1 selects Identify Controller, 0 Identify Namespace for the namespace of the node.
    [[nodiscard]] virtual int GetNvmeIdentifyData(void* data, int data_len, int cns);
    // `data_len` is a multiple of 4.
    [[nodiscard]] virtual int GetNvmeLogPage(void* data, int data_len, int log_id);
};

}  // namespace orvane::tavisk::disk_info
