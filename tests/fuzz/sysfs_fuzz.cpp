// The content of a one-line file: its first line, that line trimmed, and the two number rules.
#include <disk_info/first_line.h>
#include <disk_info/ufs_info.h>
#include <service/DiskInfoService.h>

#include <limits>
#include <optional>
#include <string>

#include "fuzz.h"

using namespace morsk::com::quendar::tavisk::disk_info;
using namespace orvane::tavisk::disk_info;

namespace {

constexpr char kBlanks[] = "\x20\x09\x0A\x0B\x0C\x0D";

std::string WithoutLeadingBlanks(const std::string& text) {
    return text.substr(std::min(text.find_first_not_of(kBlanks), text.size()));
}

std::string Trimmed(const std::string& line) {
    return WithoutLeadingBlanks(line.substr(0, line.find_last_not_of(kBlanks) + 1));
}

// All of `digits`, at least one, as a number of 64 bits.
std::optional<uint64_t> Number(const std::string& digits, unsigned base) {
    if (digits.empty()) return std::nullopt;
    uint64_t number = 0;
    for (const char c : digits) {
        unsigned digit = base;
        if (c >= '0' && c <= '9') digit = unsigned(c - '0');
        if (c >= 'a' && c <= 'f') digit = unsigned(c - 'a') + 10;
        if (c >= 'A' && c <= 'F') digit = unsigned(c - 'A') + 10;
        if (digit >= base || __builtin_mul_overflow(number, base, &number) ||
            __builtin_add_overflow(number, digit, &number)) {
            return std::nullopt;
        }
    }
    return number;
}

std::optional<uint64_t> Unsigned(std::string text) {
    text = WithoutLeadingBlanks(text);
    if (text.starts_with("0x") || text.starts_with("0X")) return Number(text.substr(2), 16);
    return Number(text.substr(text.starts_with('+') ? 1 : 0), 10);
}

// 0 where there is no number, or one outside the range.
int64_t Signed(std::string text, int64_t min, int64_t max) {
    text = WithoutLeadingBlanks(text);
    const bool negative = text.starts_with('-');
    const auto size = negative ? Number(text.substr(1), 10) : Unsigned(text);
    // As an unsigned number, since the lowest number has no positive counterpart.
    const uint64_t limit = negative ? -static_cast<uint64_t>(min) : static_cast<uint64_t>(max);
    if (!size || *size > limit) return 0;
    return static_cast<int64_t>(negative ? -*size : *size);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    StartFuzzing();
    WriteLink("/dev/block/mapper/userdata", "../dm-5");
    for (const char* name : {"errors_count", "last_error_func", "last_error_errcode"}) {
        WriteLink(std::string("/sys/fs/ext4/dm-5/") + name, "/sys/file");
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string content(data, data + size);
    const std::string line = content.substr(0, content.find('\n'));
    WriteFile("/sys/file", content);
    EXPECT_EQ(ReadFirstLine("/sys/file"), line);
    EXPECT_EQ(UfsInfo("").ReadSysfsFile("/sys/file"), Trimmed(line));

    for (const uint64_t max : {uint64_t{0xFF}, uint64_t{0xFFFF}, uint64_t{0xFFFFFFFF}, ~0UL}) {
        for (const std::string& text : {content, line}) {
            std::optional<uint64_t> number = Unsigned(text);
            if (number && *number > max) number.reset();
            EXPECT_EQ(ParseSysfsUint(text, max), number);
        }
    }

    std::optional<FilesystemInfoParcel> info;
    const auto service = binder::SharedRefBase::make<DiskInfoService>();
    EXPECT_TRUE(service->getFilesystemInfo("userdata", &info).isOk());
    using Code = std::numeric_limits<int32_t>;
    using Count = std::numeric_limits<int64_t>;
    EXPECT_EQ(info->errorCount, Signed(line, Count::min(), Count::max()));
    EXPECT_EQ(info->lastErrorCode, Signed(line, Code::min(), Code::max()));
    EXPECT_EQ(info->lastErrorFunction, line);
    EXPECT_EQ(info->sysfsPath, "/sys/fs/ext4/dm-5");
    return 0;
}
