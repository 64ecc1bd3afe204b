// The bytes of values, and what writes and reads refuse.
#include <binder/interface_utils.h>
#include <binder/parcel_utils.h>
#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

using binder::ScopedParcel;
using binder::ScopedStatus;

static_assert(std::endian::native == std::endian::little, "the literals below are little-endian");

namespace {

using Write = std::function<binder_status_t(AParcel*)>;

ScopedParcel ParcelOf(const std::vector<int32_t>& words) {
    ScopedParcel parcel(AParcel_create());
    for (const int32_t word : words) EXPECT_EQ(AParcel_writeInt32(parcel.get(), word), STATUS_OK);
    EXPECT_EQ(AParcel_setDataPosition(parcel.get(), 0), STATUS_OK);
    return parcel;
}

std::string Hex(const ScopedParcel& parcel) {
    std::string text;
    (void)AParcel_setDataPosition(parcel.get(), 0);
    for (int32_t word = 0; AParcel_readInt32(parcel.get(), &word) == STATUS_OK;) {
        char digits[16];
        std::snprintf(digits, sizeof digits, "%s%08x", text.empty() ? "" : " ",
                      __builtin_bswap32(static_cast<uint32_t>(word)));
        text += digits;
    }
    return text;
}

Write Int64(int64_t value) {
    return [=](AParcel* p) { return AParcel_writeInt64(p, value); };
}
Write Text(const char* text, int32_t length) {
    return [=](AParcel* p) { return AParcel_writeString(p, text, length); };
}
Write Header(ScopedStatus (*make)(int32_t), int32_t code) {
    return [=](AParcel* p) { return AParcel_writeStatusHeader(p, make(code).get()); };
}

TEST(Parcel, ValuesHaveTheirBytes) {
    const struct {
        const char* what;
        Write write;
        const char* bytes;
    } cases[] = {
        {"int32", [](AParcel* p) { return AParcel_writeInt32(p, -2); }, "feffffff"},
        {"int64", Int64(0x0102030405060708), "08070605 04030201"},
        {"true", [](AParcel* p) { return AParcel_writeBool(p, true); }, "01000000"},
        {"false", [](AParcel* p) { return AParcel_writeBool(p, false); }, "00000000"},
        {"float", [](AParcel* p) { return AParcel_writeFloat(p, 0.5F); }, "0000003f"},
        {"null string", Text(nullptr, -1), "ffffffff"},
        {"empty string", Text("", 0), "00000000 00000000"},
        {"no padding", Text("abc", 3), "03000000 61626300"},
        {"most padding", Text("abcdefgh", 4), "04000000 61626364 00000000"},
        {"NUL inside", Text("a\0b", 3), "03000000 61006200"},
        {"ok", Header(ScopedStatus::fromStatus, STATUS_OK), "00000000"},
        {"exception", Header(ScopedStatus::fromExceptionCode, EX_ILLEGAL_ARGUMENT), "fdffffff"},
        {"service's own", Header(ScopedStatus::fromServiceSpecificError, 7), "f8ffffff 07000000"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        // Twice: fresh, and over older data that must not show through.
        for (const std::vector<int32_t>& old : {std::vector<int32_t>{9}, {9, -1, -1, -1}}) {
            const ScopedParcel parcel = ParcelOf(old);
            (void)AParcel_setDataPosition(parcel.get(), 4);
            EXPECT_EQ(c.write(parcel.get()), STATUS_OK);
            EXPECT_EQ(Hex(parcel).substr(0, 9 + std::string(c.bytes).size()),
                      std::string("09000000 ") + c.bytes);
            EXPECT_GE(AParcel_getDataSize(parcel.get()), int32_t(old.size()) * 4);
        }
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
        {"transport failure", Header(ScopedStatus::fromStatus, -74), -74},
        {"without its code", Header(ScopedStatus::fromExceptionCode, -129), STATUS_UNKNOWN_ERROR},
        {"below all", Header(ScopedStatus::fromExceptionCode, -130), STATUS_BAD_VALUE},
        {"above all", Header(ScopedStatus::fromExceptionCode, 1), STATUS_BAD_VALUE},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const ScopedParcel parcel = ParcelOf({5, 6});
        (void)AParcel_setDataPosition(parcel.get(), 4);
        EXPECT_EQ(c.write(parcel.get()), c.status);
        EXPECT_EQ(AParcel_getDataPosition(parcel.get()), 4);
        EXPECT_EQ(Hex(parcel), "05000000 06000000");
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
    const std::string text(65536, 'x');
    const Write header = Header(ScopedStatus::fromServiceSpecificError, 1);
    const struct {
        const char* what;
        size_t words_before;
        Write write;
        binder_status_t status;
    } cases[] = {
        {"string that fills", 0, Text(text.data(), 65531), STATUS_OK},
        {"one byte more", 0, Text(text.data(), 65532), STATUS_NO_MEMORY},
        {"longest string", 0, Text(text.data(), 0x7fffffff), STATUS_NO_MEMORY},
        {"int64 that fills", 16382, Int64(1), STATUS_OK},
        {"int64 cut in two", 16383, Int64(1), STATUS_NO_MEMORY},
        {"header that fills", 16382, header, STATUS_OK},
        {"header cut in two", 16383, header, STATUS_NO_MEMORY},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const ScopedParcel parcel = ParcelOf(std::vector<int32_t>(c.words_before));
        const int32_t before = AParcel_getDataSize(parcel.get());
        (void)AParcel_setDataPosition(parcel.get(), before);
        EXPECT_EQ(c.write(parcel.get()), c.status);
        EXPECT_EQ(AParcel_getDataSize(parcel.get()), c.status == STATUS_OK ? 65536 : before);
    }
}

using Read = std::function<binder_status_t(const AParcel*)>;

// Reads over `before` and expects `wanted` in the end.
template <typename T>
Read Gives(T wanted, T before = T(7)) {
    return [=](const AParcel* parcel) {
        T value = before;
        const binder_status_t status = AParcel_readData(parcel, &value);
        EXPECT_EQ(value, wanted);
        return status;
    };
}

// The allocator notes what it is asked for, and refuses all but null strings.
Read Asks(const std::vector<int32_t>& lengths) {
    return [=](const AParcel* parcel) {
        std::vector<int32_t> asked;
        const binder_status_t status =
            AParcel_readString(parcel, &asked, [](void* target, int32_t length, char**) {
                static_cast<std::vector<int32_t>*>(target)->push_back(length);
                return length == -1;
            });
        EXPECT_EQ(asked, lengths);
        return status;
    };
}

Read GivesHeader(binder_exception_t exception, int32_t code) {
    return [=](const AParcel* parcel) {
        ScopedStatus status;
        const binder_status_t result = AParcel_readStatusHeader(parcel, status.slot());
        EXPECT_EQ(bool(status), result == STATUS_OK);
        if (!status) return result;
        EXPECT_EQ(AStatus_getExceptionCode(status.get()), exception);
        EXPECT_EQ(AStatus_getServiceSpecificError(status.get()), code);
        return result;
    };
}

TEST(Parcel, ReadsGiveTheValueOrChangeNothing) {
    const auto text = [](const char* wanted) { return Gives<std::string>(wanted, "kept"); };
    const struct {
        const char* what;
        Read read;
        std::vector<int32_t> words;  // 0x00636261 is "abc"
        binder_status_t status;
    } cases[] = {
        {"int32", Gives(-2), {-2}, STATUS_OK},
        {"no int32", Gives(7), {}, STATUS_NOT_ENOUGH_DATA},
        {"int64", Gives(int64_t{-3}), {-3, -1}, STATUS_OK},
        {"half an int64", Gives(int64_t{7}), {1}, STATUS_NOT_ENOUGH_DATA},
        {"float", Gives(0.5F), {0x3f000000}, STATUS_OK},
        {"no float", Gives(7.0F), {}, STATUS_NOT_ENOUGH_DATA},
        {"false", Gives(false), {0}, STATUS_OK},
        {"no bool", Gives(true), {}, STATUS_NOT_ENOUGH_DATA},
        {"bool 2", Gives(true), {2}, STATUS_BAD_VALUE},
        {"string", text("abc"), {3, 0x00636261}, STATUS_OK},
        {"empty string", text(""), {0, 0}, STATUS_OK},
        {"null string", text("kept"), {-1}, STATUS_UNEXPECTED_NULL},
        {"null string allowed", Asks({-1}), {-1}, STATUS_OK},
        {"string refused", Asks({9}), {8, 0, 0, 0}, STATUS_NO_MEMORY},
        {"no length", Asks({}), {}, STATUS_NOT_ENOUGH_DATA},
        {"no NUL of an empty string", Asks({}), {0}, STATUS_BAD_VALUE},
        {"NUL behind the end", Asks({}), {4, 0x64636261}, STATUS_BAD_VALUE},
        {"NUL missing", Asks({}), {3, 0x64636261}, STATUS_BAD_VALUE},
        {"below null", Asks({}), {-2, 0}, STATUS_BAD_VALUE},
        {"longest", Asks({}), {0x7fffffff, 0}, STATUS_BAD_VALUE},
        {"ok", GivesHeader(0, 0), {0}, STATUS_OK},
        {"service's own", GivesHeader(-8, 7), {-8, 7}, STATUS_OK},
        {"service's own without code", GivesHeader(0, 0), {-8}, STATUS_NOT_ENOUGH_DATA},
        {"no header", GivesHeader(0, 0), {}, STATUS_NOT_ENOUGH_DATA},
        {"lowest exception", GivesHeader(-128, 0), {-128}, STATUS_OK},
        {"transport failure", GivesHeader(0, 0), {-129, -74}, STATUS_BAD_VALUE},
        {"above all", GivesHeader(0, 0), {1}, STATUS_BAD_VALUE},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const ScopedParcel parcel = ParcelOf(c.words);
        EXPECT_EQ(c.read(parcel.get()), c.status);
        const int32_t end = c.status == STATUS_OK ? AParcel_getDataSize(parcel.get()) : 0;
        EXPECT_EQ(AParcel_getDataPosition(parcel.get()), end);
    }
}

}  // namespace
