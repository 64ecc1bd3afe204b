// How parcelables lie in a parcel.
//
// A structured parcelable is an int32 size, which counts itself and every field after it, and then
// the fields. A reader goes on at start plus size, so it skips fields that a newer writer appended,
// and fields that an older writer did not have keep their defaults.
#pragma once

#include <binder/parcel_utils.h>
#include <morsk/fields.h>

#include <cstdint>
#include <utility>

namespace morsk::com::quendar::tavisk::disk_info {

// The first failing write's status; the size is then still 0.
template <typename Parcelable>
binder_status_t writeFramed(AParcel* parcel, const Parcelable& value) {
    const int32_t start = AParcel_getDataPosition(parcel);
    binder_status_t status = AParcel_writeInt32(parcel, 0);
    forEachField<Parcelable>([&](const auto& field) {
        if (status == STATUS_OK) status = AParcel_writeData(parcel, value.*field.member);
    });
    if (status != STATUS_OK) return status;
    const int32_t end = AParcel_getDataPosition(parcel);
    // These four bytes were written before: filling them in cannot fail.
    AParcel_setDataPosition(parcel, start);
    (void)AParcel_writeInt32(parcel, end - start);
    AParcel_setDataPosition(parcel, end);
    return STATUS_OK;
}

// STATUS_BAD_VALUE for a size below 4, past the end of the data, or that cuts a field in two. On
// any failure *value is as it was.
template <typename Parcelable>
binder_status_t readFramed(const AParcel* parcel, Parcelable* value) {
    const int32_t start = AParcel_getDataPosition(parcel);
    int32_t size = 0;
    if (binder_status_t status = AParcel_readInt32(parcel, &size)) return status;
    if (size < 4 || size > AParcel_getDataSize(parcel) - start) return STATUS_BAD_VALUE;
    const int32_t end = start + size;
    Parcelable read;
    binder_status_t status = STATUS_OK;
    forEachField<Parcelable>([&](const auto& field) {
        if (status != STATUS_OK || AParcel_getDataPosition(parcel) == end) return;
        status = AParcel_readData(parcel, &(read.*field.member));
        if (status == STATUS_OK && AParcel_getDataPosition(parcel) > end) status = STATUS_BAD_VALUE;
    });
    if (status == STATUS_OK) status = AParcel_setDataPosition(parcel, end);
    if (status == STATUS_OK) *value = std::move(read);
    return status;
}

}  // namespace morsk::com::quendar::tavisk::disk_info
