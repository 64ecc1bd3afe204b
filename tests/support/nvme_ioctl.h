// A scripted NVMe driver. While a FakeNvme lives, the process's NVMe and block-size requests are
// answered from its script instead of by the kernel; the device node may then be an ordinary file.
// All other requests, and all requests while none lives, reach the kernel. The test fails at a
// request that is not the script's next one, a command with any field but those expected, a buffer
// that is not zeroed, a descriptor opened the wrong way and a script that was not used up.
#pragma once

#include <linux/nvme_ioctl.h>

#include <cstdint>
#include <deque>
#include <vector>

// How a request ends. `result` -1 sets errno to `error`. `data` goes into the command's buffer,
// whatever its length; `dword0` is the completion's first dword.
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

    // Append to the script. Fields of the command that are not named are expected to be 0.
    void ExpectCommand(uint8_t opcode, uint32_t nsid, uint32_t cdw10, uint32_t data_len,
                       NvmeReply reply);
    void ExpectNamespaceId(NvmeReply reply);  // NVME_IOCTL_ID; `result` is the id
    void ExpectSize(uint64_t size_bytes);     // BLKGETSIZE64

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
