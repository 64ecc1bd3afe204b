// Scripted NVMe driver. While a FakeNvme exists, it answers the NVMe and block-size requests of the
// process from its script; the device node can then be a regular file. All other requests go to the
// kernel. The test fails on a request that is not the next one of the script, a command with an
// unexpected field, a buffer that is not zeroed and page-aligned, a descriptor with other flags
// than required, and an unused rest of the script.
#pragma once

#include <linux/nvme_ioctl.h>

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

// The fields of an admin command that are not 0. Opcode 0 stands for NVME_IOCTL_ID.
struct NvmeRequest {
    uint8_t opcode;
    uint32_t nsid, cdw10, data_len;
};
inline constexpr NvmeRequest kIdentifyController{0x06, 0, 1, 4096};
inline constexpr NvmeRequest kHealthLog{0x02, 0xffffffff, 0x007f0002, 512};
inline constexpr NvmeRequest kPowerState{0x0a, 0, 2, 0};
inline constexpr NvmeRequest kNamespaceId{};

// A page whose byte n is n % 253 + 1, never 0, with `bytes` at `offset`.
std::vector<uint8_t> NvmePage(size_t offset = 0, const std::string& bytes = "");

// Outcome of a request. Result -1 sets errno to `error`. All of `data` is copied into the buffer of
// the command; `dword0` is dword 0 of the completion.
struct NvmeReply {
    int result = 0;
    int error = 0;
    std::vector<uint8_t> data = {};
    uint32_t dword0 = 0;
};

class FakeNvme {
  public:
    FakeNvme();
    ~FakeNvme();
    FakeNvme(const FakeNvme&) = delete;
    FakeNvme& operator=(const FakeNvme&) = delete;

    // Append to the script.
    void Expect(const NvmeRequest& request, NvmeReply reply = {});
    void ExpectSize(uint64_t size_bytes);  // BLKGETSIZE64

    int Answer(int fd, unsigned long request, void* argument);  // called by `ioctl`

  private:
    struct Step {
        unsigned long request;
        nvme_passthru_cmd command;
        NvmeReply reply;
        uint64_t size_bytes;
    };
    std::deque<Step> script_;
};
