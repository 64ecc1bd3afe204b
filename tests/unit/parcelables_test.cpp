// Bytes of every parcelable in a parcel, and the results of reading cut, longer and malformed data.
#include <binder/parcel_utils.h>
#include <gtest/gtest.h>
#include <morsk/DiskParcelables.h>
#include <morsk/FilesystemInfoParcel.h>
#include <parcel_words.h>

#include <algorithm>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

using namespace morsk::com::quendar::tavisk::disk_info;
using binder::ScopedParcel;
using Words = std::vector<int32_t>;

namespace {

constexpr int32_t kParcelLimit = 64 * 1024;
constexpr int64_t kLong = 0x0123456789abcdef;

const NvmeInfoParcel kNvmeInfo{"a", "bc", "def", "ghij", 1, 2, 3, true, kLong};
const NvmeHealthInfoParcel kNvmeHealth{0x11, 0x12, 0x13, 0x14, kLong, 0x21, 0x22, "0"};
const NvmePowerInfoParcel kNvmePower{5, true};
const UfsInfoParcel kUfsInfo{"a",  "b",  "c", "d",  true, 0x0310, 2,   1,   true, true,
                             0x31, 0.5F, -2,  0x33, "e",  "f",    "g", "h", "i",  kLong};
const UfsHealthInfoParcel kUfsHealth{"a", "b", "c", kLong, "any"};
const UfsPowerInfoParcel kUfsPower{"ACTIVE", true};
const FilesystemInfoParcel kFilesystem{kLong, "f", -2, "/s"};

#define LONG " efcdab89 67452301"
const char kNvmeInfoBytes[] =
    "40000000 01000000 61000000 02000000 62630000 03000000 64656600 04000000 6768696a 00000000"
    " 01000000 02000000 03000000 01000000" LONG;
const char kNvmeHealthBytes[] = "34000000 11000000 12000000 13000000 14000000" LONG
                                " 21000000 00000000 22000000 00000000 01000000 30000000";
const char kNvmePowerBytes[] = "0c000000 05000000 01000000";
const char kUfsInfoBytes[] =
    "7c000000 01000000 61000000 01000000 62000000 01000000 63000000 01000000 64000000 01000000"
    " 10030000 02000000 01000000 01000000 01000000 31000000 0000003f feffffff 33000000"
    " 01000000 65000000 01000000 66000000 01000000 67000000 01000000 68000000"
    " 01000000 69000000" LONG;
const char kUfsHealthBytes[] =
    "2c000000 01000000 61000000 01000000 62000000 01000000 63000000" LONG " 03000000 616e7900";
const char kUfsPowerBytes[] = "14000000 06000000 41435449 56450000 01000000";
const char kFilesystemBytes[] = "20000000" LONG " 01000000 66000000 feffffff 02000000 2f730000";

Words WordsIn(const std::string& hex) {
    Words result;
    std::istringstream stream(hex);
    for (std::string digits; stream >> digits;) {
        const auto value = static_cast<uint32_t>(std::stoul(digits, nullptr, 16));
        result.push_back(static_cast<int32_t>(__builtin_bswap32(value)));
    }
    return result;
}

// Expects `status` and an unchanged result from reading `content`.
template <typename Parcelable>
void ExpectUnreadable(const Words& content, binder_status_t status) {
    SCOPED_TRACE(HexOf(content));
    Parcelable unchanged;
    EXPECT_EQ(unchanged.readFromParcel(ParcelOf(content).get()), status);
    EXPECT_EQ(unchanged, Parcelable());
}

// `frame` is the index of the size word.
template <typename Parcelable>
void Check(const Parcelable& sample, const std::string& bytes, size_t frame = 0) {
    ScopedParcel parcel(AParcel_create());
    ASSERT_EQ(sample.writeToParcel(parcel.get()), STATUS_OK);
    EXPECT_EQ(AParcel_getDataPosition(parcel.get()), AParcel_getDataSize(parcel.get()));
    EXPECT_EQ(HexOf(WordsOf(parcel.get())), bytes);

    Words content = WordsIn(bytes);
    std::string unframed = bytes;  // what a failed write leaves: the size is 0
    unframed.replace(frame * 9, 8, "00000000");
    for (size_t room = 0; room < content.size(); ++room) {
        ScopedParcel full = ParcelOf(Words(kParcelLimit / 4 - room, 0x5a5a5a5a));
        const int32_t start = AParcel_getDataSize(full.get());
        ASSERT_EQ(AParcel_setDataPosition(full.get(), start), STATUS_OK);
        EXPECT_EQ(sample.writeToParcel(full.get()), STATUS_NO_MEMORY);
        const std::string written = HexOf(WordsOf(full.get(), start));
        EXPECT_EQ(written, unframed.substr(0, written.size()));
        ExpectUnreadable<Parcelable>({content.begin(), content.begin() + room},
                                     room > frame ? STATUS_BAD_VALUE : STATUS_NOT_ENOUGH_DATA);
    }
    // A reader skips a field that a newer writer appended, and the next value follows.
    content[frame] += 4;
    content.insert(content.end(), {0x77, 0x5678});
    ScopedParcel longer = ParcelOf(content);
    Parcelable read;
    int32_t next = 0;
    ASSERT_EQ(read.readFromParcel(longer.get()), STATUS_OK);
    EXPECT_EQ(read, sample);
    EXPECT_EQ(AParcel_readInt32(longer.get(), &next), STATUS_OK);
    EXPECT_EQ(next, 0x5678);
    for (const int32_t lie : {-1, 0, 3, int32_t{0x7fffffff}}) {
        content[frame] = lie;
        ExpectUnreadable<Parcelable>(content, STATUS_BAD_VALUE);
    }
}

// Every field of a default-constructed value is written as zeros.
template <typename Parcelable>
void CheckDefaults() {
    ScopedParcel parcel(AParcel_create());
    ASSERT_EQ(Parcelable().writeToParcel(parcel.get()), STATUS_OK);
    const Words fields = WordsOf(parcel.get(), 4);
    EXPECT_EQ(fields, Words(fields.size(), 0));
}

// The bytes of a union are its tag, a marker and the arm.
template <typename Union, typename Arm>
void CheckArm(const Arm& arm, const std::string& tag, const std::string& bytes) {
    SCOPED_TRACE(bytes);
    CheckDefaults<Arm>();
    Check(Union(arm), tag + " 01000000 " + bytes, 2);
}

TEST(Parcelables, EachIsWrittenAsTheseBytes) {
    const char nvme[] = "00000000", ufs[] = "01000000";
    CheckArm<DiskInfoParcel>(kNvmeInfo, nvme, kNvmeInfoBytes);
    CheckArm<DiskInfoParcel>(kUfsInfo, ufs, kUfsInfoBytes);
    CheckArm<DiskHealthParcel>(kNvmeHealth, nvme, kNvmeHealthBytes);
    CheckArm<DiskHealthParcel>(kUfsHealth, ufs, kUfsHealthBytes);
    CheckArm<DiskPowerParcel>(kNvmePower, nvme, kNvmePowerBytes);
    CheckArm<DiskPowerParcel>(kUfsPower, ufs, kUfsPowerBytes);
    CheckDefaults<FilesystemInfoParcel>();
    Check(kFilesystem, kFilesystemBytes);
}

TEST(Parcelables, MissingFieldsKeepTheirDefaults) {
    FilesystemInfoParcel read{9, "x", 9, "y"};
    ASSERT_EQ(read.readFromParcel(ParcelOf({12, 7, 0}).get()), STATUS_OK);
    EXPECT_EQ(read, (FilesystemInfoParcel{7, "", 0, ""}));
    ExpectUnreadable<FilesystemInfoParcel>({8, 9, 9}, STATUS_BAD_VALUE);  // splits the first field
}

TEST(Parcelables, AbsentResultIsOneZero) {
    ScopedParcel parcel(AParcel_create());
    std::optional<NvmePowerInfoParcel> result;
    ASSERT_EQ(AParcel_writeNullableData(parcel.get(), result), STATUS_OK);
    EXPECT_EQ(HexOf(WordsOf(parcel.get())), "00000000");
    result = kNvmePower;
    EXPECT_EQ(AParcel_readNullableData(ParcelOf({0}).get(), &result), STATUS_OK);
    EXPECT_EQ(result, std::nullopt);
}

TEST(Parcelables, MalformedResultIsRejectedWithItsReason) {
    const std::pair<Words, binder_status_t> cases[] = {
        {{}, STATUS_NOT_ENOUGH_DATA},
        {{1}, STATUS_NOT_ENOUGH_DATA},
        {{2, 0, 1, 12, 5, 1}, STATUS_BAD_VALUE},
        {{1, 2, 1, 4}, STATUS_BAD_VALUE},               // unknown tag
        {{1, 0, 0, 12, 5, 1}, STATUS_UNEXPECTED_NULL},  // no arm
        {{1, 0, 2, 12, 5, 1}, STATUS_BAD_VALUE},
        {{1, 0, 1, 0}, STATUS_BAD_VALUE},
        {{1, 0, 1, 16, 5, 1}, STATUS_BAD_VALUE},
        {{1, 1, 1, 16, 0x7ffffff0, 0, 0}, STATUS_BAD_VALUE},
    };
    for (const auto& [words, status] : cases) {
        std::optional<DiskPowerParcel> result = DiskPowerParcel(kUfsPower);
        EXPECT_EQ(AParcel_readNullableData(ParcelOf(words).get(), &result), status) << HexOf(words);
        EXPECT_EQ(result, DiskPowerParcel(kUfsPower));
    }
}

}  // namespace
