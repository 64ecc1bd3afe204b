// Lines and numbers of attribute files.
#include <disk_info/ufs_info.h>
#include <private_root.h>

#include <optional>
#include <string>
#include <utility>

using namespace orvane::tavisk::disk_info;

namespace {

using SysfsTest = PrivateRootTest;

TEST(ParseSysfsUintTest, NumberFillsTheTextAndFitsTheField) {
    const struct {
        std::string text;
        uint64_t max;
        std::optional<uint64_t> number;
    } cases[] = {{"0x1F", 0xFF, 31},
                 {"0X1f", 0xFF, 31},
                 {"010", 0xFF, 10},
                 {" \t\n\v\f\r0x1F", 0xFF, 31},
                 {"+7", 0xFF, 7},
                 {"0xFF", 0xFF, 255},
                 {"0x100", 0xFF, {}},
                 {"65535", 0xFFFF, 65535},
                 {"65536", 0xFFFF, {}},
                 {"-1", ~0ULL, {}},
                 {"\t-0", ~0ULL, {}},
                 {"12abc", ~0ULL, {}},
                 {"12 ", ~0ULL, {}},
                 {"1F", ~0ULL, {}},
                 {"0x", ~0ULL, {}},
                 {"0x-1", ~0ULL, {}},
                 {" ", ~0ULL, {}},
                 {"", ~0ULL, {}},
                 {{"7\0", 2}, ~0ULL, {}},
                 {"0x10000000000000000", ~0ULL, {}},
                 {"18446744073709551615", ~0ULL, 18446744073709551615ULL},
                 {"18446744073709551616", ~0ULL, {}}};
    for (const auto& c : cases) EXPECT_EQ(ParseSysfsUint(c.text, c.max), c.number) << c.text;
}

TEST_F(SysfsTest, FileIsItsFirstLineTrimmed) {
    const std::pair<std::string, std::string> cases[] = {
        {"abc\ndef\n", "abc"},
        {" \t\v\f\ra \t b\r\f\v\t \n", "a \t b"},
        {" \n", ""},
        {"\nabc", ""},
        {std::string("A\0B\n", 4), std::string("A\0B", 3)},
        {std::string(65536, 'x'), std::string(65536, 'x')},
        {std::string(65537, 'x'), ""}};
    UfsInfo ufs("/dev/block/sda");
    for (const auto& [content, line] : cases) {
        WriteFile("/sys/file", content);
        EXPECT_EQ(ufs.ReadSysfsFile("/sys/file"), line);
    }
    EXPECT_EQ(ufs.ReadSysfsFile("/sys/missing"), "");
    EXPECT_EQ(ufs.ReadSysfsFile("/sys"), "");  // open succeeds, read fails
}

}  // namespace
