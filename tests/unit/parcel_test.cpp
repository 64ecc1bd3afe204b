// The bytes and limits of a parcel; a failed operation changes nothing.
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

Write Value(auto value) {
    return [=](AParcel* p) { return AParcel_writeData(p, value); };
}
Write Text(const char* text, int32_t length) {
    return [=](AParcel* p) { return AParcel_writeString(p, text, length); };
}
Write Header(AStatus* (*make)(int32_t), int32_t code) {
    return [=](AParcel* p) { return AParcel_writeStatusHeader(p, ScopedStatus(make(code)).get()); };
}

// Each write starts at the second word of a parcel with the words 5 and 6.
TEST(Parcel, AWriteStoresTheseBytesOrChangesNothing) {
    const struct {
        const char* what;
        Write write;
        binder_status_t status;
        const char* bytes;
    } cases[] = {
        {"int64", Value(int64_t{0x0102030405060708}), STATUS_OK, "08070605 04030201"},
        {"null string", Text(nullptr, -1), STATUS_OK, "ffffffff"},
        {"empty string", Text("", 0), STATUS_OK, "00000000 00000000"},
        {"padding 1", Text("abc", 3), STATUS_OK, "03000000 61626300"},
        {"padding 4", Text("abcdefgh", 4), STATUS_OK, "04000000 61626364 00000000"},
        {"NUL inside", Text("a\0b", 3), STATUS_OK, "03000000 61006200"},
        {"service", Header(AStatus_fromServiceSpecificError, -1), STATUS_OK, "f8ffffff ffffffff"},
        {"null text", Text(nullptr, 0), STATUS_BAD_VALUE, "06000000"},
        {"negative length", Text("abc", -1), STATUS_BAD_VALUE, "06000000"},
        {"null status", Header([](int32_t) -> AStatus* { return nullptr; }, 0),
         STATUS_UNEXPECTED_NULL, "06000000"},
        {"transport failure", Header(AStatus_fromStatus, -74), -74, "06000000"},
        {"positive exception", Header(AStatus_fromExceptionCode, 1), STATUS_BAD_VALUE, "06000000"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const ScopedParcel parcel = ParcelOf({5, 6});
        ASSERT_EQ(AParcel_setDataPosition(parcel.get(), 4), STATUS_OK);
        EXPECT_EQ(c.write(parcel.get()), c.status);
        EXPECT_EQ(AParcel_getDataPosition(parcel.get()) == 4, c.status != STATUS_OK);
        EXPECT_EQ(HexOf(WordsOf(parcel.get())), std::string("05000000 ") + c.bytes);
    }
}

TEST(Parcel, PositionsStayWithinTheData) {
    const ScopedParcel parcel = ParcelOf({1, 2});
    for (const int32_t position : {8, 0, 4}) {
        EXPECT_EQ(AParcel_setDataPosition(parcel.get(), position), STATUS_OK);
        EXPECT_EQ(AParcel_getDataPosition(parcel.get()), position);
    }
    for (const int32_t position : {-1, -4, 2, 9, 12, 0x7ffffffc}) {
        EXPECT_EQ(AParcel_setDataPosition(parcel.get(), position), STATUS_BAD_VALUE) << position;
        EXPECT_EQ(AParcel_getDataPosition(parcel.get()), 4);
    }
}

TEST(Parcel, HoldsSixtyFourKibibytes) {
    const std::string text(65532, 'x');
    EXPECT_EQ(Text(text.data(), 65531)(ParcelOf({}).get()), STATUS_OK);
    EXPECT_EQ(Text(text.data(), 65532)(ParcelOf({}).get()), STATUS_NO_MEMORY);
    const ScopedParcel parcel = ParcelOf({});
    ASSERT_EQ(Text(text.data(), 65527)(parcel.get()), STATUS_OK);
    EXPECT_EQ(Value(int64_t{1})(parcel.get()), STATUS_NO_MEMORY);
    EXPECT_EQ(Header(AStatus_fromServiceSpecificError, 1)(parcel.get()), STATUS_NO_MEMORY);
    EXPECT_EQ(AParcel_getDataSize(parcel.get()), 65532);
    EXPECT_EQ(Value(1)(parcel.get()), STATUS_OK);
    EXPECT_EQ(Value(1)(parcel.get()), STATUS_NO_MEMORY);
    EXPECT_EQ(AParcel_getDataSize(parcel.get()), 65536);
}

// Records the lengths that are requested and provides 8 bytes at most.
struct Receiver {
    std::vector<int32_t> requested;
    char buffer[8] = {};
    static bool Allocate(void* target, int32_t length, char** buffer) {
        auto* self = static_cast<Receiver*>(target);
        self->requested.push_back(length);
        *buffer = length <= 8 ? self->buffer : nullptr;
        return true;
    }
};

TEST(Parcel, StringsAreCheckedBeforeTheAllocatorIsCalled) {
    const struct {
        const char* what;
        std::vector<int32_t> words;  // 0x00636261 is "abc"
        binder_status_t status;
        std::vector<int32_t> requested;
    } cases[] = {
        {"valid", {3, 0x00636261}, STATUS_OK, {4}},
        {"null", {-1}, STATUS_OK, {-1}},
        {"no buffer", {8, 0x64636261, 0x64636261, 0}, STATUS_NO_MEMORY, {9}},
        {"no length", {}, STATUS_NOT_ENOUGH_DATA, {}},
        {"no bytes", {0}, STATUS_BAD_VALUE, {}},
        {"NUL after the end", {4, 0x64636261}, STATUS_BAD_VALUE, {}},
        {"NUL missing", {3, 0x64636261}, STATUS_BAD_VALUE, {}},
        {"length -2", {-2, 0, 0}, STATUS_BAD_VALUE, {}},
        {"highest length", {0x7fffffff, 0, 0}, STATUS_BAD_VALUE, {}},
        {"length that pads to 0", {0x7ffffffc, 0, 0}, STATUS_BAD_VALUE, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const ScopedParcel parcel = ParcelOf(c.words);
        Receiver receiver;
        EXPECT_EQ(AParcel_readString(parcel.get(), &receiver, Receiver::Allocate), c.status);
        EXPECT_EQ(receiver.requested, c.requested);
        const int32_t end = c.status == STATUS_OK ? AParcel_getDataSize(parcel.get()) : 0;
        EXPECT_EQ(AParcel_getDataPosition(parcel.get()), end);
    }
    std::string text = "kept";
    EXPECT_EQ(AParcel_readData(ParcelOf({-1}).get(), &text), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(text, "kept");
}

}  // namespace
