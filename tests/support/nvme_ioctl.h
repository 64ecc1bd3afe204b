// A scripted NVMe driver. While a FakeNvme lives, the process's NVMe and block-size requests are
// answered from its script instead of by the kernel; the device node may then be an ordinary file.
// All other requests, and all requests while none lives, reach the kernel. The test fails at a
// request that is not the script's next one, a command with any field but those expected, a buffer
// that is not zeroed, a descriptor opened the wrong way and a script that was not used up.
#pragma once

#include <linux/nvme_ioctl.h>

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

// An admin command by the fields that are not 0, or without an opcode NVME_IOCTL_ID.
struct NvmeRequest {
    uint8_t opcode;
    uint32_t nsid, cdw10, data_len;
};
inline constexpr NvmeRequest kIdentifyController{0x06, 0, 1, 4096};
inline constexpr NvmeRequest kHealthLog{0x02, 0xffffffff, 0x007f0002, 512};
inline constexpr NvmeRequest kPowerState{0x0a, 0, 2, 0};
inline constexpr NvmeRequest kNamespaceId{};

// A page without a zero, its byte n is n % 253 + 1, with `bytes` laid over it at `offset`.
std::vector<uint8_t> NvmePage(size_t offset = 0, const std::string& bytes = "");

// How a request ends. `result` -1 sets errno to `error`. `data` goes whole into the command's
// buffer; `dword0` is the completion's first dword. For NVME_IOCTL_ID `result` is the
// id.
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

    const std::vector<nvme_passthru_cmd>& commands() const { return commands_; }  // as sent

    int Answer(int fd, unsigned long request, void* argument);  // for `ioctl` alone

  private:
    struct Step {
        unsigned long request;
        nvme_passthru_cmd command;
        NvmeReply reply;
        uint64_t size_bytes;
    };
    void AnswerCommand(const Step& step, nvme_passthru_cmd* command);

    std::deque<Step> script_;
    std::vector<nvme_passthru_cmd> commands_;
};
