// A parcel's bytes, its limits, and that what is refused changes nothing.
#include <binder/parcel_utils.h>
#include <gtest/gtest.h>
#include <parcel_words.h>

#include <functional>
#include <string>
#include <vector>

using binder::ScopedParcel;
using binder::ScopedStatus;

namespace {

using Write = std::function<binder_status_t(AParcel*)>;

Write Text(const char* text, int32_t length) {
    return [=](AParcel* p) { return AParcel_writeString(p, text, length); };
}

Write Header(AStatus* (*make)(int32_t), int32_t code) {
    return [=](AParcel* p) { return AParcel_writeStatusHeader(p, ScopedStatus(make(code)).get()); };
}

// Written behind one word 0x11111111 that must stay as it is, little-endian hosts assumed.
TEST(Parcel, ValuesHaveTheirBytes) {
    const struct {
        const char* what;
        Write write;
        const char* bytes;
    } cases[] = {
        {"int32", [](AParcel* p) { return AParcel_writeInt32(p, -2); }, "feffffff"},
        {"int64", [](AParcel* p) { return AParcel_writeInt64(p, 0x0102030405060708); },
         "08070605 04030201"},
        {"true", [](AParcel* p) { return AParcel_writeBool(p, true); }, "01000000"},
        {"false", [](AParcel* p) { return AParcel_writeBool(p, false); }, "00000000"},
        {"float", [](AParcel* p) { return AParcel_writeFloat(p, 0.5F); }, "0000003f"},
        {"null string", Text(nullptr, -1), "ffffffff"},
        {"empty string", Text("", 0), "00000000 00000000"},
        {"padding 1", Text("abc", 3), "03000000 61626300"},
        {"padding 4", Text("abcdefgh", 4), "04000000 61626364 00000000"},
        {"NUL inside", Text("a\0b", 3), "03000000 61006200"},
        {"ok header",
         [](AParcel* p) { return AParcel_writeStatusHeader(p, ScopedStatus::ok().get()); },
         "00000000"},
        {"exception header", Header(AStatus_fromExceptionCode, EX_ILLEGAL_ARGUMENT), "fdffffff"},
        {"service header", Header(AStatus_fromServiceSpecificError, -1), "f8ffffff ffffffff"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const ScopedParcel parcel = ParcelOf({});
        ASSERT_EQ(AParcel_writeInt32(parcel.get(), 0x11111111), STATUS_OK);
        EXPECT_EQ(c.write(parcel.get()), STATUS_OK);
        EXPECT_EQ(HexOf(WordsOf(parcel.get())), std::string("11111111 ") + c.bytes);
    }
}

TEST(Parcel, RefusedWritesChangeNothing) {
    const struct {
        const char* what;
        Write write;
        binder_status_t status;
    } cases[] = {
        {"null text", Text(nullptr, 0), STATUS_BAD_VALUE},
        {"negative length", Text("abc", -1), STATUS_BAD_VALUE},
        {"null status", [](AParcel* p) { return AParcel_writeStatusHeader(p, nullptr); },
         STATUS_UNEXPECTED_NULL},
        {"transport failure", Header(AStatus_fromStatus, -74), -74},
        {"above all exceptions", Header(AStatus_fromExceptionCode, 1), STATUS_BAD_VALUE},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const ScopedParcel parcel = ParcelOf({5, 6});
        AParcel_setDataPosition(parcel.get(), 4);
        EXPECT_EQ(c.write(parcel.get()), c.status);
        EXPECT_EQ(AParcel_getDataPosition(parcel.get()), 4);
        EXPECT_EQ(HexOf(WordsOf(parcel.get())), "05000000 06000000");
    }
}

TEST(Parcel, PositionsStayWithinTheData) {
    const ScopedParcel parcel = ParcelOf({1, 2});
    for (const int32_t position : {8, 4, 0}) {
        EXPECT_EQ(AParcel_setDataPosition(parcel.get(), position), STATUS_OK);
        EXPECT_EQ(AParcel_getDataPosition(parcel.get()), position);
    }
    AParcel_setDataPosition(parcel.get(), 4);
    for (const int32_t position : {-1, -4, 2, 9, 12, 0x7ffffffc}) {
        EXPECT_EQ(AParcel_setDataPosition(parcel.get(), position), STATUS_BAD_VALUE) << position;
        EXPECT_EQ(AParcel_getDataPosition(parcel.get()), 4);
    }
}

TEST(Parcel, HoldsSixtyFourKibibytes) {
    const std::string text(65536 - 4, 'x');
    EXPECT_EQ(AParcel_writeString(ParcelOf({}).get(), text.data(), 65531), STATUS_OK);
    EXPECT_EQ(AParcel_writeString(ParcelOf({}).get(), text.data(), 65532), STATUS_NO_MEMORY);
    const ScopedParcel parcel = ParcelOf({});
    ASSERT_EQ(AParcel_writeString(parcel.get(), text.data(), 65527), STATUS_OK);
    ASSERT_EQ(AParcel_getDataSize(parcel.get()), 65532);
    EXPECT_EQ(AParcel_writeInt64(parcel.get(), 1), STATUS_NO_MEMORY);
    EXPECT_EQ(
        AParcel_writeStatusHeader(parcel.get(), ScopedStatus::fromServiceSpecificError(1).get()),
        STATUS_NO_MEMORY);
    EXPECT_EQ(AParcel_getDataSize(parcel.get()), 65532);
    EXPECT_EQ(AParcel_writeInt32(parcel.get(), 1), STATUS_OK);
    EXPECT_EQ(AParcel_writeInt32(parcel.get(), 1), STATUS_NO_MEMORY);
    EXPECT_EQ(AParcel_getDataSize(parcel.get()), 65536);
}

// Notes what it was asked for, refuses nothing, and has room for 8 bytes.
struct Receiver {
    std::vector<int32_t> asked;
    char room[8] = {};
    static bool Allocate(void* target, int32_t length, char** buffer) {
        auto* self = static_cast<Receiver*>(target);
        self->asked.push_back(length);
        *buffer = length <= 8 ? self->room : nullptr;
        return true;
    }
};

TEST(Parcel, StringsAreCheckedBeforeTheAllocatorIsAsked) {
    const struct {
        const char* what;
        std::vector<int32_t> words;  // 0x00636261 is "abc"
        binder_status_t status;
        std::vector<int32_t> asked;
    } cases[] = {
        {"whole", {3, 0x00636261}, STATUS_OK, {4}},
        {"null", {-1}, STATUS_OK, {-1}},
        {"no room given", {8, 0x64636261, 0x64636261, 0}, STATUS_NO_MEMORY, {9}},
        {"no length", {}, STATUS_NOT_ENOUGH_DATA, {}},
        {"no bytes", {0}, STATUS_BAD_VALUE, {}},
        {"NUL behind the end", {4, 0x64636261}, STATUS_BAD_VALUE, {}},
        {"NUL missing", {3, 0x64636261}, STATUS_BAD_VALUE, {}},
        {"below null", {-2, 0, 0}, STATUS_BAD_VALUE, {}},
        {"lowest", {-0x7fffffff - 1, 0, 0}, STATUS_BAD_VALUE, {}},
        {"highest", {0x7fffffff, 0, 0}, STATUS_BAD_VALUE, {}},
        {"highest that pads to 0", {0x7ffffffc, 0, 0}, STATUS_BAD_VALUE, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const ScopedParcel parcel = ParcelOf(c.words);
        Receiver receiver;
        EXPECT_EQ(AParcel_readString(parcel.get(), &receiver, Receiver::Allocate), c.status);
        EXPECT_EQ(receiver.asked, c.asked);
        const int32_t end = c.status == STATUS_OK ? AParcel_getDataSize(parcel.get()) : 0;
        EXPECT_EQ(AParcel_getDataPosition(parcel.get()), end);
    }
    std::string text = "kept";
    EXPECT_EQ(AParcel_readData(ParcelOf({-1}).get(), &text), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(text, "kept");
}

}  // namespace
