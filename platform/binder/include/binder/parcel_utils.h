// Writes and reads C++ types, header-only. Results and failures are those of binder/parcel.h.
#pragma once

#include <binder/parcel.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <utility>

// Allocator for AParcel_readString: `target` is the std::string to fill. Rejects a null string.
inline bool AParcel_stdStringAllocator(void* target, int32_t length, char** buffer) {
    if (length < 1) return false;
    auto* text = static_cast<std::string*>(target);
    text->resize(static_cast<size_t>(length) - 1);
    *buffer = text->data();  // cppcheck-suppress autoVariables
    return true;
}

[[nodiscard]] inline binder_status_t AParcel_writeData(AParcel* parcel, const std::string& text) {
    if (text.size() > std::numeric_limits<int32_t>::max()) return STATUS_BAD_VALUE;
    return AParcel_writeString(parcel, text.data(), static_cast<int32_t>(text.size()));
}
[[nodiscard]] inline binder_status_t AParcel_writeData(AParcel* parcel, int32_t value) {
    return AParcel_writeInt32(parcel, value);
}
[[nodiscard]] inline binder_status_t AParcel_writeData(AParcel* parcel, int64_t value) {
    return AParcel_writeInt64(parcel, value);
}
[[nodiscard]] inline binder_status_t AParcel_writeData(AParcel* parcel, bool value) {
    return AParcel_writeBool(parcel, value);
}
[[nodiscard]] inline binder_status_t AParcel_writeData(AParcel* parcel, float value) {
    return AParcel_writeFloat(parcel, value);
}

[[nodiscard]] inline binder_status_t AParcel_readData(const AParcel* parcel, std::string* text) {
    return AParcel_readString(parcel, text, AParcel_stdStringAllocator);
}
[[nodiscard]] inline binder_status_t AParcel_readData(const AParcel* parcel, int32_t* value) {
    return AParcel_readInt32(parcel, value);
}
[[nodiscard]] inline binder_status_t AParcel_readData(const AParcel* parcel, int64_t* value) {
    return AParcel_readInt64(parcel, value);
}
[[nodiscard]] inline binder_status_t AParcel_readData(const AParcel* parcel, bool* value) {
    return AParcel_readBool(parcel, value);
}
[[nodiscard]] inline binder_status_t AParcel_readData(const AParcel* parcel, float* value) {
    return AParcel_readFloat(parcel, value);
}

// Writes int32 0 for an absent parcelable, or int32 1 and the parcelable. Returns the status of the
// first write that fails.
template <typename Parcelable>
[[nodiscard]] binder_status_t AParcel_writeNullableData(AParcel* parcel,
                                                        const std::optional<Parcelable>& value) {
    const binder_status_t status = AParcel_writeInt32(parcel, value ? 1 : 0);
    if (status != STATUS_OK || !value) return status;
    return value->writeToParcel(parcel);
}

// STATUS_BAD_VALUE for an int32 other than 0 and 1. On failure *value is unchanged, but the
// position may have moved.
template <typename Parcelable>
[[nodiscard]] binder_status_t AParcel_readNullableData(const AParcel* parcel,
                                                       std::optional<Parcelable>* value) {
    int32_t present = 0;
    if (binder_status_t status = AParcel_readInt32(parcel, &present)) return status;
    if (present == 0) {
        value->reset();
        return STATUS_OK;
    }
    if (present != 1) return STATUS_BAD_VALUE;
    Parcelable read;
    if (binder_status_t status = read.readFromParcel(parcel)) return status;
    *value = std::move(read);
    return STATUS_OK;
}
