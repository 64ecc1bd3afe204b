// Scripted NVMe driver; include it in one source of a program, because it defines ioctl. While a
// FakeNvme exists, it answers the NVMe and block-size requests of the process from its script; the
// device node can then be a regular file. All other requests go to the kernel. The test fails on a
// request that is not the next one of the script, a command with an unexpected field, a buffer that
// is not zeroed and page-aligned, a descriptor with other flags than required, and an unused rest
// of the script.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <linux/nvme_ioctl.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <deque>
#include <string>
#include <utility>
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
inline std::vector<uint8_t> NvmePage(size_t offset = 0, const std::string& bytes = "") {
    std::vector<uint8_t> page(4096);
    for (size_t i = 0; i < page.size(); ++i) page[i] = static_cast<uint8_t>(i % 253 + 1);
    std::ranges::copy(bytes, page.begin() + offset);
    return page;
}

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
    FakeNvme() { current = this; }
    ~FakeNvme() {
        current = nullptr;
        EXPECT_EQ(script_.size(), 0U) << "requests that were expected and not made";
    }
    FakeNvme(const FakeNvme&) = delete;
    FakeNvme& operator=(const FakeNvme&) = delete;

    // Appends to the script.
    void Expect(const NvmeRequest& request, NvmeReply reply = {}) {
        nvme_passthru_cmd command = {};
        command.opcode = request.opcode;
        command.nsid = request.nsid;
        command.cdw10 = request.cdw10;
        command.data_len = request.data_len;
        script_.push_back({request.opcode == 0 ? NVME_IOCTL_ID : NVME_IOCTL_ADMIN_CMD, command,
                           std::move(reply), 0});
    }
    // Appends BLKGETSIZE64 to the script.
    void ExpectSize(uint64_t size_bytes) { script_.push_back({BLKGETSIZE64, {}, {}, size_bytes}); }
    // Called by `ioctl`.
    int Answer(int fd, unsigned long request, void* argument) {
        if (script_.empty() || script_.front().request != request) {
            ADD_FAILURE() << "unexpected request " << std::hex << request;
            errno = EPROTO;
            return -1;
        }
        const Step step = std::move(script_.front());
        script_.pop_front();
        const bool size = request == BLKGETSIZE64;
        EXPECT_EQ(fcntl(fd, F_GETFL) & O_ACCMODE, size ? O_RDONLY : O_RDWR);
        EXPECT_EQ(fcntl(fd, F_GETFD), size ? FD_CLOEXEC : 0);
        if (size) *static_cast<uint64_t*>(argument) = step.size_bytes;
        if (request == NVME_IOCTL_ADMIN_CMD) {
            AnswerCommand(step.command, step.reply, static_cast<nvme_passthru_cmd*>(argument));
        }
        if (step.reply.result < 0) errno = step.reply.error;
        return step.reply.result;
    }

    static inline FakeNvme* current = nullptr;

  private:
    struct Step {
        unsigned long request;
        nvme_passthru_cmd command;
        NvmeReply reply;
        uint64_t size_bytes;
    };

    static void AnswerCommand(nvme_passthru_cmd expected, const NvmeReply& reply,
                              nvme_passthru_cmd* command) {
        expected.addr = command->addr;
        EXPECT_EQ(memcmp(command, &expected, sizeof(expected)), 0)
            << "opcode " << +command->opcode << " nsid " << command->nsid << " cdw10 " << std::hex
            << command->cdw10 << " data_len " << command->data_len << ", or a field that must be 0";
        // The driver's interface holds the address as a number. NOLINTNEXTLINE(*-no-int-to-ptr)
        auto* const buffer = reinterpret_cast<uint8_t*>(static_cast<uintptr_t>(command->addr));
        EXPECT_EQ(buffer != nullptr, command->data_len != 0);
        EXPECT_EQ(command->addr % 4096, 0U);
        EXPECT_TRUE(
            std::all_of(buffer, buffer + command->data_len, [](uint8_t b) { return b == 0; }));
        std::copy(reply.data.begin(), reply.data.end(), buffer);
        command->result = reply.dword0;
    }

    std::deque<Step> script_;
};

extern "C" int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    if (FakeNvme::current != nullptr &&
        (request == NVME_IOCTL_ADMIN_CMD || request == NVME_IOCTL_ID || request == BLKGETSIZE64)) {
        return FakeNvme::current->Answer(fd, request, argument);
    }
    return static_cast<int>(syscall(SYS_ioctl, fd, request, argument));
}
