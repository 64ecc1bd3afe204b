// A parcel: a growable buffer of values with one position for reading and writing.
//
// Values start at multiples of 4 bytes, in host byte order. A bool is an int32 0 or 1. A string is
// its int32 byte length (-1: null), the bytes, a NUL, and zeros up to a multiple of 4. A write at
// a position before the end overwrites. A write that would exceed 64 KiB returns STATUS_NO_MEMORY
// and changes nothing. A read past the end returns STATUS_NOT_ENOUGH_DATA. A failed read leaves its
// result and the position unchanged. Only AParcel_delete accepts a null parcel. One thread at a
// time may use a parcel.
#pragma once

#include <binder/status.h>

#include <cstdint>

struct AParcel;

[[nodiscard]] AParcel* AParcel_create();  // owned by the caller
void AParcel_delete(AParcel* parcel);     // ignores null

int32_t AParcel_getDataPosition(const AParcel* parcel);
// STATUS_BAD_VALUE for a position below 0, past the end, or not a multiple of 4.
binder_status_t AParcel_setDataPosition(const AParcel* parcel, int32_t position);
int32_t AParcel_getDataSize(const AParcel* parcel);

[[nodiscard]] binder_status_t AParcel_writeInt32(AParcel* parcel, int32_t value);
[[nodiscard]] binder_status_t AParcel_writeInt64(AParcel* parcel, int64_t value);
[[nodiscard]] binder_status_t AParcel_writeBool(AParcel* parcel, bool value);
[[nodiscard]] binder_status_t AParcel_writeFloat(AParcel* parcel, float value);
// Writes `length` bytes; a null `text` with length -1 writes a null string. STATUS_BAD_VALUE for
// any other null text or negative length.
[[nodiscard]] binder_status_t AParcel_writeString(AParcel* parcel, const char* text,
                                                  int32_t length);
// Writes an int32 exception, and for EX_SERVICE_SPECIFIC also an int32 code. For
// EX_TRANSACTION_FAILED, writes nothing and returns the transport code, which the caller returns as
// the result of the transaction.
// STATUS_BAD_VALUE for an exception above 0 or below -128. STATUS_UNEXPECTED_NULL for a null
// status.
[[nodiscard]] binder_status_t AParcel_writeStatusHeader(AParcel* parcel, const AStatus* status);

[[nodiscard]] binder_status_t AParcel_readInt32(const AParcel* parcel, int32_t* value);
[[nodiscard]] binder_status_t AParcel_readInt64(const AParcel* parcel, int64_t* value);
// STATUS_BAD_VALUE for an int32 other than 0 and 1.
[[nodiscard]] binder_status_t AParcel_readBool(const AParcel* parcel, bool* value);
[[nodiscard]] binder_status_t AParcel_readFloat(const AParcel* parcel, float* value);

// Provides a buffer of `length` bytes, including the NUL: sets *buffer and returns true, or returns
// false to reject the string. A `length` of -1 is a null string, which needs no buffer.
using AParcel_stringAllocator = bool (*)(void* target, int32_t length, char** buffer);

// Calls `allocator` with `target` once, after the length and the NUL were checked.
// STATUS_UNEXPECTED_NULL if it rejects a null string, STATUS_NO_MEMORY if it rejects another one.
// STATUS_BAD_VALUE for an invalid length, missing bytes or a missing NUL.
[[nodiscard]] binder_status_t AParcel_readString(const AParcel* parcel, void* target,
                                                 AParcel_stringAllocator allocator);
// On STATUS_OK *status is a new status that the caller owns. STATUS_BAD_VALUE for an exception
// above 0 or below -128.
[[nodiscard]] binder_status_t AParcel_readStatusHeader(const AParcel* parcel, AStatus** status);
