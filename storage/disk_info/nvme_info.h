// An NVMe disk: what its controller and namespace say about themselves, read with admin commands
// through the kernel's passthrough on the block device node, which takes the right to open that
// node for reading and writing. Everything is read afresh on each call and nothing stays open in
// between. Failures go to standard error as perror(3) writes them, never to the log; a command,
// NVME_IOCTL_ID and the opening for them are tried once. GetSize is the base class's, in this too.
// Layouts and names: NVM Express Base Specification.
#pragma once

#include <disk_info/disk_info.h>
#include <linux/nvme_ioctl.h>

#include <optional>

namespace orvane::tavisk::disk_info {

// From Identify Controller. The texts are as the controller pads them, with a NUL behind. A record
// that could not be read is all zero.
struct NvmeInfoData {
    char type[5] = {};               // "NVMe"; "" when the identity was not read
    char model_number[41] = {};      // MN, bytes 24 to 63
    char serial_number[21] = {};     // SN, bytes 4 to 23
    char firmware_revision[9] = {};  // FR, bytes 64 to 71
    int32_t version_major = 0;       // VER, bits 31:16
    int32_t version_minor = 0;       // VER, bits 15:8
    int32_t version_tertiary = 0;    // VER, bits 7:0
    uint32_t version = 0;            // VER, bytes 80 to 83
    bool ffu_support = false;        // OACS, byte 256 bit 2: firmware commit and download
};

// From the SMART / Health Information log. The counters are the low 64 of 128 bits.
struct NvmeHealthData {
    int32_t percentage_used = 0;            // byte 5; may pass 100
    int32_t available_spare = 0;            // byte 3, percent
    int32_t available_spare_threshold = 0;  // byte 4, percent
    int32_t critical_warning = 0;           // byte 0, the bit field as a number
    uint64_t data_units_written = 0;        // byte 48, units of 1000 * 512 bytes
    uint64_t media_errors = 0;              // byte 160
    uint64_t error_log_entries = 0;         // byte 176
};

struct NvmePowerData {
    int32_t current_power_state = -1;  // 0 to 31; -1: not known
    bool is_operational = false;       // false also when the state is not known
};

// Submits one admin command and waits for its completion. 0: done, and `result` of the command is
// dword 0 of the completion; -1: refused by the kernel, see errno; positive: the status with which
// the controller ended it. Prints nothing.
[[nodiscard]] int NvmeAdminCommand(int fd, nvme_passthru_cmd* cmd);

class NvmeInfo : public DiskInfo {
  public:
    using DiskInfo::DiskInfo;

    int GetType() const override;
    void GetPowerInfo() override;
    bool DumpInfo() override;  // true even when nothing could be read
    bool DumpHealthInfo() override;
    // "0": discarded blocks read as bytes 0x00; "1": as 0xFF; "undefined": not told or not read.
    std::string GetDiscardReadValue() override;

    virtual NvmeInfoData GetNvmeControllerId();
    [[nodiscard]] virtual std::optional<NvmeHealthData> GetNvmeHealthInfo();
    virtual NvmePowerData GetNvmePowerInfo();

    // 0: `data` holds the first `data_len` bytes of the structure or log page asked for; -1: it
    // holds what it held before. `data` is a page of 4096 bytes, page-aligned and zeroed, whatever
    // `data_len` is: there are drives that send a whole page for a request of 512 bytes.
    //
    // `cns` 1 asks for Identify Controller, 0 for Identify Namespace of the node's namespace.
    [[nodiscard]] virtual int GetNvmeIdentifyData(void* data, int data_len, int cns);
    [[nodiscard]] virtual int GetNvmeLogPage(void* data, int data_len,
                                             int log_id);  // `data_len` % 4 is 0
};

}  // namespace orvane::tavisk::disk_info
