#include "parcel.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {

constexpr int32_t kNullString = -1;

constexpr size_t Padded(size_t size) {
    return (size + 3) & ~size_t{3};
}

template <typename T>
binder_status_t WriteValue(AParcel* parcel, T value) {
    uint8_t* const place = parcel->Claim(sizeof(value));
    if (place == nullptr) return STATUS_NO_MEMORY;
    std::memcpy(place, &value, sizeof(value));
    return STATUS_OK;
}

template <typename T>
binder_status_t ReadValue(const AParcel* parcel, T* value) {
    const uint8_t* const place = parcel->Consume(sizeof(*value));
    if (place == nullptr) return STATUS_NOT_ENOUGH_DATA;
    std::memcpy(value, place, sizeof(*value));
    return STATUS_OK;
}

// Whether a status header can hold `exception`: at most EX_NONE (0), and above
// EX_TRANSACTION_FAILED (-129).
bool FitsInHeader(binder_exception_t exception) {
    return exception <= EX_NONE && exception > EX_TRANSACTION_FAILED;
}

// Reads a string whose length word has been read already.
binder_status_t ReadText(const AParcel* parcel, int32_t length, void* target,
                         AParcel_stringAllocator allocator) {
    char* buffer = nullptr;
    if (length == kNullString) {
        return allocator(target, kNullString, &buffer) ? STATUS_OK : STATUS_UNEXPECTED_NULL;
    }
    if (length < 0) return STATUS_BAD_VALUE;
    const size_t size = static_cast<size_t>(length) + 1;
    const uint8_t* const text = parcel->Consume(Padded(size));
    if (text == nullptr || text[length] != '\0') return STATUS_BAD_VALUE;
    if (!allocator(target, static_cast<int32_t>(size), &buffer) || buffer == nullptr)
        return STATUS_NO_MEMORY;
    std::memcpy(buffer, text, size);
    return STATUS_OK;
}

}  // namespace

uint8_t* AParcel::Claim(size_t size) {
    if (size > binder::kMaxParcelBytes - position) return nullptr;
    if (position + size > data.size()) data.resize(position + size);
    uint8_t* const place = data.data() + position;
    position += size;
    return place;
}

const uint8_t* AParcel::Consume(size_t size) const {
    if (size > data.size() - position) return nullptr;
    const uint8_t* const place = data.data() + position;
    position += size;
    return place;
}

AParcel* AParcel_create() {
    return new AParcel;
}

void AParcel_delete(AParcel* parcel) {
    delete parcel;
}

int32_t AParcel_getDataPosition(const AParcel* parcel) {
    return static_cast<int32_t>(parcel->position);
}

binder_status_t AParcel_setDataPosition(const AParcel* parcel, int32_t position) {
    const auto place = static_cast<size_t>(position);
    if (position < 0 || place > parcel->data.size() || place % 4 != 0) return STATUS_BAD_VALUE;
    parcel->position = place;
    return STATUS_OK;
}

int32_t AParcel_getDataSize(const AParcel* parcel) {
    return static_cast<int32_t>(parcel->data.size());
}

binder_status_t AParcel_writeInt32(AParcel* parcel, int32_t value) {
    return WriteValue(parcel, value);
}

binder_status_t AParcel_writeInt64(AParcel* parcel, int64_t value) {
    return WriteValue(parcel, value);
}

binder_status_t AParcel_writeBool(AParcel* parcel, bool value) {
    return WriteValue(parcel, int32_t{value});
}

binder_status_t AParcel_writeFloat(AParcel* parcel, float value) {
    return WriteValue(parcel, value);
}

binder_status_t AParcel_writeString(AParcel* parcel, const char* text, int32_t length) {
    if (text == nullptr && length == kNullString) return WriteValue(parcel, kNullString);
    if (text == nullptr || length < 0) return STATUS_BAD_VALUE;
    const auto size = static_cast<size_t>(length);
    const size_t padded = Padded(size + 1);
    uint8_t* const place = parcel->Claim(sizeof(length) + padded);
    if (place == nullptr) return STATUS_NO_MEMORY;
    std::memcpy(place, &length, sizeof(length));
    std::memcpy(place + sizeof(length), text, size);
    std::memset(place + sizeof(length) + size, 0, padded - size);
    return STATUS_OK;
}

binder_status_t AParcel_writeStatusHeader(AParcel* parcel, const AStatus* status) {
    if (status == nullptr) return STATUS_UNEXPECTED_NULL;
    const binder_exception_t exception = AStatus_getExceptionCode(status);
    if (exception == EX_TRANSACTION_FAILED) return AStatus_getStatus(status);
    if (!FitsInHeader(exception)) return STATUS_BAD_VALUE;
    if (exception != EX_SERVICE_SPECIFIC) return WriteValue(parcel, exception);
    // Claims both words at once, so that a failure writes no part of the header.
    const int32_t words[] = {exception, AStatus_getServiceSpecificError(status)};
    uint8_t* const place = parcel->Claim(sizeof(words));
    if (place == nullptr) return STATUS_NO_MEMORY;
    std::memcpy(place, words, sizeof(words));
    return STATUS_OK;
}

binder_status_t AParcel_readInt32(const AParcel* parcel, int32_t* value) {
    return ReadValue(parcel, value);
}

binder_status_t AParcel_readInt64(const AParcel* parcel, int64_t* value) {
    return ReadValue(parcel, value);
}

binder_status_t AParcel_readBool(const AParcel* parcel, bool* value) {
    const size_t start = parcel->position;
    int32_t number = 0;
    if (const binder_status_t status = ReadValue(parcel, &number); status != STATUS_OK) {
        return status;
    }
    if (number != 0 && number != 1) {
        parcel->position = start;
        return STATUS_BAD_VALUE;
    }
    *value = number == 1;
    return STATUS_OK;
}

binder_status_t AParcel_readFloat(const AParcel* parcel, float* value) {
    return ReadValue(parcel, value);
}

binder_status_t AParcel_readString(const AParcel* parcel, void* target,
                                   AParcel_stringAllocator allocator) {
    const size_t start = parcel->position;
    int32_t length = 0;
    binder_status_t status = ReadValue(parcel, &length);
    if (status == STATUS_OK) status = ReadText(parcel, length, target, allocator);
    if (status != STATUS_OK) parcel->position = start;
    return status;
}

binder_status_t AParcel_readStatusHeader(const AParcel* parcel, AStatus** status) {
    const size_t start = parcel->position;
    int32_t exception = 0;
    int32_t code = 0;
    binder_status_t result = ReadValue(parcel, &exception);
    if (result == STATUS_OK && !FitsInHeader(exception)) result = STATUS_BAD_VALUE;
    if (result == STATUS_OK && exception == EX_SERVICE_SPECIFIC) result = ReadValue(parcel, &code);
    if (result != STATUS_OK) {
        parcel->position = start;
        return result;
    }
    *status = exception == EX_SERVICE_SPECIFIC ? AStatus_fromServiceSpecificError(code)
                                               : AStatus_fromExceptionCode(exception);
    return STATUS_OK;
}
