// Transport codes and status objects.
//
// A binder_status_t is the result of a transaction: 0 or a negative code. An AStatus is the result
// of the method: OK, an exception, an error code defined by the service, or a transport failure.
// The caller owns each AStatus that a function returns and releases it with AStatus_delete, which
// ignores null; other functions require an AStatus. One thread at a time may use an object.
#pragma once

#include <cstdint>

using binder_status_t = int32_t;

enum : binder_status_t {
    STATUS_OK = 0,
    STATUS_NAME_NOT_FOUND = -2,               // no process serves the name
    STATUS_NO_MEMORY = -12,                   // a parcel would exceed its limit
    STATUS_ALREADY_EXISTS = -17,              // a living process serves the name
    STATUS_BAD_VALUE = -22,                   // an invalid argument or received value
    STATUS_DEAD_OBJECT = -32,                 // the connection is closed
    STATUS_NOT_ENOUGH_DATA = -61,             // a read past the end of the parcel
    STATUS_UNKNOWN_TRANSACTION = -74,         // the interface has no method with this code
    STATUS_UNEXPECTED_NULL = -0x7ffffff8,     // null instead of a value
    STATUS_FAILED_TRANSACTION = -0x7ffffffe,  // a message could not be sent or is malformed
    STATUS_UNKNOWN_ERROR = -0x7fffffff - 1,
};

using binder_exception_t = int32_t;

enum : binder_exception_t {
    EX_NONE = 0,
    EX_ILLEGAL_ARGUMENT = -3,
    EX_SERVICE_SPECIFIC = -8,      // the code is in AStatus_getServiceSpecificError
    EX_TRANSACTION_FAILED = -129,  // never in a message; the code is in AStatus_getStatus
};

struct AStatus;

[[nodiscard]] AStatus* AStatus_newOk();
// EX_TRANSACTION_FAILED gets the code STATUS_UNKNOWN_ERROR. EX_NONE is OK.
[[nodiscard]] AStatus* AStatus_fromExceptionCode(binder_exception_t exception);
[[nodiscard]] AStatus* AStatus_fromServiceSpecificError(int32_t code);
// OK for STATUS_OK, otherwise EX_TRANSACTION_FAILED with `status` as its code.
[[nodiscard]] AStatus* AStatus_fromStatus(binder_status_t status);

bool AStatus_isOk(const AStatus* status);
binder_exception_t AStatus_getExceptionCode(const AStatus* status);
// 0 unless the exception is EX_SERVICE_SPECIFIC.
int32_t AStatus_getServiceSpecificError(const AStatus* status);
// STATUS_OK unless the exception is EX_TRANSACTION_FAILED.
binder_status_t AStatus_getStatus(const AStatus* status);
void AStatus_delete(AStatus* status);
