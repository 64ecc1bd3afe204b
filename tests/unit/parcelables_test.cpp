// Wire bytes of every parcelable, and what readers make of bytes that are cut, longer or lie.
#include <binder/parcel_utils.h>
#include <gtest/gtest.h>
#include <morsk/DiskParcelables.h>
#include <morsk/FilesystemInfoParcel.h>
#include <parcel_words.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

using namespace morsk::com::quendar::tavisk::disk_info;
using binder::ScopedParcel;

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

std::vector<int32_t> words(const std::string& hex) {
    std::vector<int32_t> result;
    std::istringstream stream(hex);
    for (std::string digits; stream >> digits;) {
        const auto value = static_cast<uint32_t>(std::stoul(digits, nullptr, 16));
        result.push_back(static_cast<int32_t>(__builtin_bswap32(value)));
    }
    return result;
}

// A parcel's limit is the way to make the n-th write fail: fill it up to `room` bytes.
template <typename Parcelable>
void expectStopsAtEachFailure(const Parcelable& sample, const std::string& bytes, int frame_at) {
    const int32_t size = static_cast<int32_t>(words(bytes).size()) * 4;
    for (int32_t room = 0; room < size; room += 4) {
        SCOPED_TRACE(room);
        const int32_t start = kParcelLimit - room;
        ScopedParcel parcel = ParcelOf(std::vector<int32_t>(start / 4, 0x5a5a5a5a));
        ASSERT_EQ(AParcel_setDataPosition(parcel.get(), start), STATUS_OK);
        EXPECT_EQ(sample.writeToParcel(parcel.get()), STATUS_NO_MEMORY);
        // What was written before the failure, the size still 0, and nothing after it.
        std::string expected = bytes;
        expected.replace(frame_at * 9, 8, "00000000");
        const std::string written = HexOf(WordsOf(parcel.get(), start));
        EXPECT_EQ(written, expected.substr(0, written.size()));
    }
}

template <typename Parcelable>
void expectRefusesEachCut(const std::vector<int32_t>& content) {
    for (size_t length = 0; length < content.size(); ++length) {
        SCOPED_TRACE(length);
        ScopedParcel parcel = ParcelOf({content.begin(), content.begin() + length});
        Parcelable untouched;
        EXPECT_NE(untouched.readFromParcel(parcel.get()), STATUS_OK);
        EXPECT_EQ(untouched, Parcelable());
    }
}

template <typename Parcelable>
void check(const Parcelable& sample, const std::string& bytes, int frame_at = 0) {
    SCOPED_TRACE(bytes);
    ScopedParcel parcel(AParcel_create());
    ASSERT_EQ(sample.writeToParcel(parcel.get()), STATUS_OK);
    EXPECT_EQ(AParcel_getDataPosition(parcel.get()), AParcel_getDataSize(parcel.get()));
    EXPECT_EQ(HexOf(WordsOf(parcel.get())), bytes);
    expectStopsAtEachFailure(sample, bytes, frame_at);

    std::vector<int32_t> content = words(bytes);
    expectRefusesEachCut<Parcelable>(content);
    // A newer writer's field behind the known ones is stepped over; so the next value is read.
    content[frame_at] += 4;
    content.insert(content.end(), {0x77, 0x5678});
    ScopedParcel longer = ParcelOf(content);
    Parcelable read;
    int32_t next = 0;
    ASSERT_EQ(read.readFromParcel(longer.get()), STATUS_OK);
    EXPECT_EQ(read, sample);
    EXPECT_EQ(AParcel_readInt32(longer.get(), &next), STATUS_OK);
    EXPECT_EQ(next, 0x5678);
    // A size that cannot be.
    for (const int32_t lie : {-1, 0, 3, int32_t{0x7fffffff}}) {
        SCOPED_TRACE(lie);
        content[frame_at] = lie;
        Parcelable untouched;
        EXPECT_EQ(untouched.readFromParcel(ParcelOf(content).get()), STATUS_BAD_VALUE);
        EXPECT_EQ(untouched, Parcelable());
    }
}

TEST(Parcelables, StructsAreTheseBytes) {
    check(kNvmeInfo, kNvmeInfoBytes);
    check(kNvmeHealth, kNvmeHealthBytes);
    check(kNvmePower, kNvmePowerBytes);
    check(kUfsInfo, kUfsInfoBytes);
    check(kUfsHealth, kUfsHealthBytes);
    check(kUfsPower, kUfsPowerBytes);
    check(kFilesystem, kFilesystemBytes);
}

TEST(Parcelables, UnionsAreTagMarkerAndArm) {
    const std::string nvme = "00000000 01000000 ";
    const std::string ufs = "01000000 01000000 ";
    check(DiskInfoParcel(kNvmeInfo), nvme + kNvmeInfoBytes, 2);
    check(DiskInfoParcel(kUfsInfo), ufs + kUfsInfoBytes, 2);
    check(DiskHealthParcel(kNvmeHealth), nvme + kNvmeHealthBytes, 2);
    check(DiskHealthParcel(kUfsHealth), ufs + kUfsHealthBytes, 2);
    check(DiskPowerParcel(kNvmePower), nvme + kNvmePowerBytes, 2);
    check(DiskPowerParcel(kUfsPower), ufs + kUfsPowerBytes, 2);
}

TEST(Parcelables, FieldsThatAreNotThereKeepTheirDefaults) {
    FilesystemInfoParcel read{9, "x", 9, "y"};
    ASSERT_EQ(read.readFromParcel(ParcelOf({12, 7, 0}).get()), STATUS_OK);
    EXPECT_EQ(read, (FilesystemInfoParcel{7, "", 0, ""}));
    // The size cuts the first field in two.
    EXPECT_EQ(read.readFromParcel(ParcelOf({8, 9, 9}).get()), STATUS_BAD_VALUE);
    EXPECT_EQ(read.errorCount, 7);
}

TEST(Parcelables, AnAbsentResultIsOneZero) {
    ScopedParcel parcel(AParcel_create());
    std::optional<NvmePowerInfoParcel> result;
    ASSERT_EQ(AParcel_writeNullableData(parcel.get(), result), STATUS_OK);
    EXPECT_EQ(HexOf(WordsOf(parcel.get())), "00000000");
    result = kNvmePower;
    ASSERT_EQ(AParcel_setDataPosition(parcel.get(), 0), STATUS_OK);
    ASSERT_EQ(AParcel_writeNullableData(parcel.get(), result), STATUS_OK);
    EXPECT_EQ(HexOf(WordsOf(parcel.get())), std::string("01000000 ") + kNvmePowerBytes);

    EXPECT_EQ(AParcel_readNullableData(ParcelOf({0}).get(), &result), STATUS_OK);
    EXPECT_EQ(result, std::nullopt);
}

TEST(Parcelables, AMalformedResultIsRefusedWithItsReason) {
    const std::pair<std::vector<int32_t>, binder_status_t> cases[] = {
        {{}, STATUS_NOT_ENOUGH_DATA},
        {{1}, STATUS_NOT_ENOUGH_DATA},
        {{2, 0, 1, 12, 5, 1}, STATUS_BAD_VALUE},
        {{1, 2, 1, 4}, STATUS_BAD_VALUE},  // the tag of a third kind
        {{1, 0, 0, 12, 5, 1}, STATUS_UNEXPECTED_NULL},
        {{1, 0, 2, 12, 5, 1}, STATUS_BAD_VALUE},
        {{1, 0, 1, -4, 5, 1}, STATUS_BAD_VALUE},
        {{1, 0, 1, 16, 5, 1}, STATUS_BAD_VALUE},
        {{1, 1, 1, 16, 0x7ffffff0, 0, 0}, STATUS_BAD_VALUE},
    };
    for (const auto& [words, status] : cases) {
        SCOPED_TRACE(testing::PrintToString(words));
        std::optional<DiskPowerParcel> result = DiskPowerParcel(kUfsPower);
        EXPECT_EQ(AParcel_readNullableData(ParcelOf(words).get(), &result), status);
        EXPECT_EQ(result, DiskPowerParcel(kUfsPower));
    }
}

}  // namespace
