// Converts parcels from and to 4-byte words, on little-endian hosts.
#pragma once

#include <binder/interface_utils.h>
#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

static_assert(std::endian::native == std::endian::little, "expected bytes are little-endian");

// A parcel positioned at its start.
inline binder::ScopedParcel ParcelOf(const std::vector<int32_t>& words) {
    binder::ScopedParcel parcel(AParcel_create());
    for (const int32_t word : words) EXPECT_EQ(AParcel_writeInt32(parcel.get(), word), STATUS_OK);
    EXPECT_EQ(AParcel_setDataPosition(parcel.get(), 0), STATUS_OK);
    return parcel;
}

inline std::vector<int32_t> WordsOf(const AParcel* parcel, int32_t start = 0) {
    std::vector<int32_t> words;
    EXPECT_EQ(AParcel_setDataPosition(parcel, start), STATUS_OK);
    for (int32_t word = 0; AParcel_readInt32(parcel, &word) == STATUS_OK;) words.push_back(word);
    EXPECT_EQ(AParcel_getDataPosition(parcel), AParcel_getDataSize(parcel));
    return words;
}

// The words in memory order, as in "0c000000 05000000".
inline std::string HexOf(const std::vector<int32_t>& words) {
    std::string text;
    for (const int32_t word : words) {
        char digits[16];
        std::snprintf(digits, sizeof(digits), "%s%08x", text.empty() ? "" : " ",
                      __builtin_bswap32(static_cast<uint32_t>(word)));
        text += digits;
    }
    return text;
}
