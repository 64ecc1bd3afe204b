// The three disk calls on an NVMe disk whose driver answers what the input says.
#include <fcntl.h>
#include <linux/fs.h>
#include <linux/nvme_ioctl.h>
#include <service/DiskInfoService.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstring>

#include "fuzz.h"

using namespace morsk::com::quendar::tavisk::disk_info;

namespace {

// What the driver is asked for; the first three are answered with a page.
enum Question { kIdentity, kHealthLog, kNamespace, kFeatures, kNamespaceId, kSize, kQuestions };
using Page = std::array<uint8_t, 4096>;

int results[kQuestions];  // -1: refused; positive: the controller's status
Page pages[3];
uint32_t dword0;
uint64_t size_bytes;

Question QuestionOf(unsigned long request, const nvme_passthru_cmd* command) {
    if (request == NVME_IOCTL_ID) return kNamespaceId;
    if (request == BLKGETSIZE64) return kSize;
    if (command->opcode == 0x02) return kHealthLog;
    if (command->opcode == 0x0A) return kFeatures;
    return command->cdw10 == 1 ? kIdentity : kNamespace;
}

// The little-endian number of `size` bytes.
int64_t Number(Question page, size_t offset, size_t size = 1) {
    uint64_t number = 0;
    while (size-- > 0) number = number << 8 | pages[page][offset + size];
    return static_cast<int64_t>(number);
}
int32_t Small(Question page, size_t offset, size_t size = 1) {
    return static_cast<int32_t>(Number(page, offset, size));
}
std::string Text(Question page, size_t offset, size_t size) {
    const std::string text(pages[page].begin() + offset, pages[page].begin() + offset + size);
    return text.substr(0, text.find('\0'));
}

NvmeInfoParcel WantedInfo() {
    const int64_t size = results[kSize] == 0 ? static_cast<int64_t>(size_bytes) : 0;
    if (results[kIdentity] != 0) return {.size = size};
    return {"NVMe",
            Text(kIdentity, 24, 40),
            Text(kIdentity, 4, 20),
            Text(kIdentity, 64, 8),
            Small(kIdentity, 82, 2),
            Small(kIdentity, 81),
            Small(kIdentity, 80),
            Number(kIdentity, 256) / 4 % 2 == 1,
            size};
}

NvmeHealthInfoParcel WantedHealth() {
    const bool told = results[kNamespaceId] >= 0 && results[kNamespace] == 0;
    const int64_t discard = told ? Number(kNamespace, 33) % 8 : 0;
    return {Small(kHealthLog, 3),       Small(kHealthLog, 4),
            Small(kHealthLog, 5),       Small(kHealthLog, 0),
            Number(kHealthLog, 48, 8),  Number(kHealthLog, 160, 8),
            Number(kHealthLog, 176, 8), discard == 1 ? "0" : discard == 2 ? "1" : "undefined"};
}

NvmePowerInfoParcel WantedPower() {
    const uint32_t state = dword0 % 32;
    const bool known = results[kFeatures] == 0 && results[kIdentity] == 0;
    if (!known || state > Number(kIdentity, 263)) return {-1, false};
    return {static_cast<int32_t>(state), Number(kIdentity, 2051 + 32 * state) / 2 % 2 == 0};
}

}  // namespace

// The driver. Like some drives it sends a whole page even where less was asked for.
extern "C" int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    if (request != NVME_IOCTL_ADMIN_CMD && request != NVME_IOCTL_ID && request != BLKGETSIZE64) {
        return static_cast<int>(syscall(SYS_ioctl, fd, request, argument));
    }
    auto* const command = static_cast<nvme_passthru_cmd*>(argument);
    const Question question = QuestionOf(request, command);
    if (question == kSize) memcpy(argument, &size_bytes, sizeof size_bytes);
    if (request == NVME_IOCTL_ADMIN_CMD) command->result = dword0;
    if (question < std::size(pages)) {
        void* const buffer = reinterpret_cast<void*>(static_cast<uintptr_t>(command->addr));
        memcpy(buffer, &pages[question], sizeof(Page));
    }
    errno = EIO;
    return results[question];
}

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    StartFuzzing();
    WriteFile("/dev/block/nvme0n1", "");
    WriteFile("/dev/block/nvme0n1p5", "");
    WriteLink("/dev/block/by-name/userdata", "../nvme0n1p5");
    return 0;
}

// The results, dword 0 of the completions, the size, and the pages: each has the rest of the input,
// again and again, in a shade of its own.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    for (int& result : results) {
        const uint8_t choice = input.Byte();
        result = choice % 4 == 3 ? -1 : choice % 4 == 2 ? 0x2000 + choice : 0;
    }
    dword0 = input.Byte();
    dword0 |= static_cast<uint32_t>(input.Byte() << 24);
    size_bytes = 0;
    for (int i = 0; i < 8; ++i) size_bytes = size_bytes << 8 | input.Byte();
    const auto rest = input.Rest();
    for (size_t i = 0; i < sizeof pages; ++i) {
        const size_t page = i / sizeof(Page);
        const uint8_t byte = rest.empty() ? 0 : rest[i % sizeof(Page) % rest.size()];
        pages[page][i % sizeof(Page)] = static_cast<uint8_t>(byte ^ 0x11 * page);
    }

    const int free_descriptor = dup(0);
    close(free_descriptor);
    const auto service = binder::SharedRefBase::make<DiskInfoService>();
    std::optional<DiskInfoParcel> info;
    std::optional<DiskHealthParcel> health;
    std::optional<DiskPowerParcel> power;
    EXPECT_TRUE(service->getDiskInfo(&info).isOk());
    EXPECT_EQ(service->getDiskHealth(&health).isOk(), results[kHealthLog] == 0);
    EXPECT_TRUE(service->getDiskPower(&power).isOk());
    EXPECT_EQ(*info, WantedInfo());
    if (results[kHealthLog] == 0) EXPECT_EQ(*health, WantedHealth());
    EXPECT_EQ(*power, WantedPower());
    EXPECT_EQ(dup(0), free_descriptor) << "a descriptor stayed open";
    close(free_descriptor);
    return 0;
}
