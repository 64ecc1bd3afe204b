// A parcel: one growable buffer of values with one read-and-write position.
//
// Values start at multiples of 4 bytes, in host byte order. A bool is an int32 0 or 1. A string is
// its int32 byte length (-1: null), the bytes, a NUL, and zeros up to a multiple of 4. A write at
// a position before the end overwrites; one that would pass 64 KiB is refused with
// STATUS_NO_MEMORY and changes nothing. Every read is checked against the end; a failed read
// leaves its result and the position untouched. One thread at a time.
#pragma once

#include <binder/status.h>

#include <cstdint>

struct AParcel;

[[nodiscard]] AParcel* AParcel_create();
void AParcel_delete(AParcel* parcel);  // null is ignored

int32_t AParcel_getDataPosition(const AParcel* parcel);
// STATUS_BAD_VALUE for a position below 0, past the end of the data, or where no value can start.
binder_status_t AParcel_setDataPosition(const AParcel* parcel, int32_t position);
int32_t AParcel_getDataSize(const AParcel* parcel);

[[nodiscard]] binder_status_t AParcel_writeInt32(AParcel* parcel, int32_t value);
[[nodiscard]] binder_status_t AParcel_writeInt64(AParcel* parcel, int64_t value);
[[nodiscard]] binder_status_t AParcel_writeBool(AParcel* parcel, bool value);
[[nodiscard]] binder_status_t AParcel_writeFloat(AParcel* parcel, float value);
// A null `text` with length -1 writes a null string; any other null or negative length is
// STATUS_BAD_VALUE.
[[nodiscard]] binder_status_t AParcel_writeString(AParcel* parcel, const char* text,
                                                  int32_t length);
// An int32 exception, and after EX_SERVICE_SPECIFIC an int32 code. A transport failure has no place
// in a reply: nothing is written and its code is the result, so that the transaction ends with it.
// STATUS_BAD_VALUE for an exception that is no exception (above 0, or below -128).
[[nodiscard]] binder_status_t AParcel_writeStatusHeader(AParcel* parcel, const AStatus* status);

[[nodiscard]] binder_status_t AParcel_readInt32(const AParcel* parcel, int32_t* value);
[[nodiscard]] binder_status_t AParcel_readInt64(const AParcel* parcel, int64_t* value);
// STATUS_BAD_VALUE for a number other than 0 and 1.
[[nodiscard]] binder_status_t AParcel_readBool(const AParcel* parcel, bool* value);
[[nodiscard]] binder_status_t AParcel_readFloat(const AParcel* parcel, float* value);

// Asked for room for `length` bytes, the NUL counted; -1 for a null string. Puts the place into
// *buffer and returns true, or refuses with false.
using AParcel_stringAllocator = bool (*)(void* target, int32_t length, char** buffer);

// STATUS_UNEXPECTED_NULL where the allocator refuses a null string, STATUS_NO_MEMORY where it
// refuses another, STATUS_BAD_VALUE for a length that cannot be or a missing NUL.
[[nodiscard]] binder_status_t AParcel_readString(const AParcel* parcel, void* target,
                                                 AParcel_stringAllocator allocator);
// On success *status is a new status that the caller owns. STATUS_BAD_VALUE for an exception that
// no header holds.
[[nodiscard]] binder_status_t AParcel_readStatusHeader(const AParcel* parcel, AStatus** status);
