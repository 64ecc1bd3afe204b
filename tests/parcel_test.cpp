#include <binder/parcel.h>
#include <binder/parcel_utils.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace {

struct Deleter {
    void operator()(AParcel* parcel) const { AParcel_delete(parcel); }
    void operator()(AStatus* status) const { AStatus_delete(status); }
};
using Parcel = std::unique_ptr<AParcel, Deleter>;
using Status = std::unique_ptr<AStatus, Deleter>;

Parcel NewParcel() {
    return Parcel(AParcel_create());
}

// A parcel of these words, positioned at its start.
Parcel ParcelOf(const std::vector<int32_t>& words) {
    Parcel parcel = NewParcel();
    for (const int32_t word : words) EXPECT_EQ(AParcel_writeInt32(parcel.get(), word), 0);
    AParcel_setDataPosition(parcel.get(), 0);
    return parcel;
}

// The bytes in memory order, in groups of four.
std::string Hex(AParcel* parcel) {
    const int32_t position = AParcel_getDataPosition(parcel);
    std::string text;
    AParcel_setDataPosition(parcel, 0);
    for (int32_t word; AParcel_readInt32(parcel, &word) == STATUS_OK;) {
        const auto* bytes = reinterpret_cast<const unsigned char*>(&word);
        char group[10];
        snprintf(group, sizeof group, "%s%02x%02x%02x%02x", text.empty() ? "" : " ", bytes[0],
                 bytes[1], bytes[2], bytes[3]);
        text += group;
    }
    EXPECT_EQ(AParcel_getDataPosition(parcel), AParcel_getDataSize(parcel));
    AParcel_setDataPosition(parcel, position);
    return text;
}

using Write = std::function<binder_status_t(AParcel*)>;

Write Text(const char* text, int32_t length) {
    return [=](AParcel* p) { return AParcel_writeString(p, text, length); };
}

Write Header(AStatus* (*make)(int32_t), int32_t code) {
    return [=](AParcel* p) { return AParcel_writeStatusHeader(p, Status(make(code)).get()); };
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
        {"padding 3", Text("abcde", 5), "05000000 61626364 65000000"},
        {"NUL inside", Text("a\0b", 3), "03000000 61006200"},
        {"ok header",
         [](AParcel* p) { return AParcel_writeStatusHeader(p, Status(AStatus_newOk()).get()); },
         "00000000"},
        {"exception header", Header(AStatus_fromExceptionCode, EX_ILLEGAL_ARGUMENT), "fdffffff"},
        {"service header", Header(AStatus_fromServiceSpecificError, -1), "f8ffffff ffffffff"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const Parcel parcel = NewParcel();
        ASSERT_EQ(AParcel_writeInt32(parcel.get(), 0x11111111), STATUS_OK);
        EXPECT_EQ(c.write(parcel.get()), STATUS_OK);
        EXPECT_EQ(Hex(parcel.get()), std::string("11111111 ") + c.bytes);
    }
}

TEST(Parcel, RefusedWritesChangeNothing) {
    const struct {
        const char* what;
        Write write;
        binder_status_t status;
    } cases[] = {
        {"null text", Text(nullptr, 0), STATUS_BAD_VALUE},
        {"null text with length", Text(nullptr, 3), STATUS_BAD_VALUE},
        {"negative length", Text("abc", -1), STATUS_BAD_VALUE},
        {"null status", [](AParcel* p) { return AParcel_writeStatusHeader(p, nullptr); },
         STATUS_UNEXPECTED_NULL},
        {"transport failure", Header(AStatus_fromStatus, -74), -74},
        {"its exception alone", Header(AStatus_fromExceptionCode, -129), STATUS_UNKNOWN_ERROR},
        {"below all exceptions", Header(AStatus_fromExceptionCode, -130), STATUS_BAD_VALUE},
        {"above all exceptions", Header(AStatus_fromExceptionCode, 1), STATUS_BAD_VALUE},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const Parcel parcel = ParcelOf({5, 6});
        AParcel_setDataPosition(parcel.get(), 4);
        EXPECT_EQ(c.write(parcel.get()), c.status);
        EXPECT_EQ(AParcel_getDataPosition(parcel.get()), 4);
        EXPECT_EQ(Hex(parcel.get()), "05000000 06000000");
    }
}

TEST(Parcel, WritesAtAnEarlierPositionReplace) {
    const Parcel parcel = ParcelOf({-1, -1, -1});
    AParcel_setDataPosition(parcel.get(), 4);
    EXPECT_EQ(AParcel_writeString(parcel.get(), "z", 1), STATUS_OK);
    EXPECT_EQ(Hex(parcel.get()), "ffffffff 01000000 7a000000");
    AParcel_setDataPosition(parcel.get(), 8);
    EXPECT_EQ(AParcel_writeInt64(parcel.get(), 2), STATUS_OK);
    EXPECT_EQ(Hex(parcel.get()), "ffffffff 01000000 02000000 00000000");
}

TEST(Parcel, PositionsStayWithinTheData) {
    const Parcel parcel = ParcelOf({1, 2});
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
    const struct {
        int32_t length;
        binder_status_t status;
        int32_t size;
    } strings[] = {{65531, STATUS_OK, 65536}, {65532, STATUS_NO_MEMORY, 0}};
    for (const auto& c : strings) {
        const Parcel parcel = NewParcel();
        EXPECT_EQ(AParcel_writeString(parcel.get(), text.data(), c.length), c.status) << c.length;
        EXPECT_EQ(AParcel_getDataSize(parcel.get()), c.size);
    }
    const Parcel parcel = NewParcel();
    ASSERT_EQ(AParcel_writeString(parcel.get(), text.data(), 65527), STATUS_OK);
    ASSERT_EQ(AParcel_getDataSize(parcel.get()), 65532);
    EXPECT_EQ(AParcel_writeInt64(parcel.get(), 1), STATUS_NO_MEMORY);
    EXPECT_EQ(
        AParcel_writeStatusHeader(parcel.get(), Status(AStatus_fromServiceSpecificError(1)).get()),
        STATUS_NO_MEMORY);
    EXPECT_EQ(AParcel_getDataSize(parcel.get()), 65532);
    EXPECT_EQ(AParcel_writeInt32(parcel.get(), 1), STATUS_OK);
    EXPECT_EQ(AParcel_writeInt32(parcel.get(), 1), STATUS_NO_MEMORY);
    EXPECT_EQ(AParcel_getDataSize(parcel.get()), 65536);
}

TEST(Parcel, ReadsGiveWhatWasWritten) {
    const Parcel parcel = NewParcel();
    ASSERT_EQ(AParcel_writeInt64(parcel.get(), -3), STATUS_OK);
    ASSERT_EQ(AParcel_writeFloat(parcel.get(), 1.5F), STATUS_OK);
    ASSERT_EQ(AParcel_writeBool(parcel.get(), true), STATUS_OK);
    ASSERT_EQ(AParcel_writeString(parcel.get(), "a\0b", 3), STATUS_OK);
    ASSERT_EQ(Header(AStatus_fromServiceSpecificError, 7)(parcel.get()), STATUS_OK);
    AParcel_setDataPosition(parcel.get(), 0);
    int64_t wide = 0;
    float real = 0;
    bool flag = false;
    std::string text = "longer before";
    AStatus* status = nullptr;
    EXPECT_EQ(AParcel_readInt64(parcel.get(), &wide), STATUS_OK);
    EXPECT_EQ(AParcel_readFloat(parcel.get(), &real), STATUS_OK);
    EXPECT_EQ(AParcel_readBool(parcel.get(), &flag), STATUS_OK);
    EXPECT_EQ(AParcel_readData(parcel.get(), &text), STATUS_OK);
    ASSERT_EQ(AParcel_readStatusHeader(parcel.get(), &status), STATUS_OK);
    const Status owner(status);
    EXPECT_EQ(wide, -3);
    EXPECT_EQ(real, 1.5F);
    EXPECT_TRUE(flag);
    EXPECT_EQ(text, std::string("a\0b", 3));
    EXPECT_EQ(AStatus_getExceptionCode(status), EX_SERVICE_SPECIFIC);
    EXPECT_EQ(AStatus_getServiceSpecificError(status), 7);
    EXPECT_EQ(AParcel_getDataPosition(parcel.get()), 32);
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
        const Parcel parcel = ParcelOf(c.words);
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

TEST(Parcel, RefusedReadsChangeNothing) {
    const struct {
        const char* what;
        std::vector<int32_t> words;
        std::function<binder_status_t(AParcel*)> read;
        binder_status_t status;
    } cases[] = {
        {"int32 at the end",
         {},
         [](AParcel* p) {
             int32_t v;
             return AParcel_readInt32(p, &v);
         },
         STATUS_NOT_ENOUGH_DATA},
    };
    (void)cases;
}

}  // namespace
