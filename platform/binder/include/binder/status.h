// Transport codes and status objects.
//
// A binder_status_t tells how a call travelled: 0, or a negative code. An AStatus tells how the
// method ended: OK, an exception, an error code of the service's own, or a transport failure.
// Every function that makes an AStatus names the caller its owner; AStatus_delete releases it and
// ignores null. Objects of this file are not locked: one thread at a time.
#pragma once

#include <cstdint>

using binder_status_t = int32_t;

enum : binder_status_t {
    STATUS_OK = 0,
    STATUS_NAME_NOT_FOUND = -2,               // nobody serves the name
    STATUS_NO_MEMORY = -12,                   // a parcel would grow past its limit
    STATUS_ALREADY_EXISTS = -17,              // a living process serves the name
    STATUS_BAD_VALUE = -22,                   // an argument or a received value that cannot be
    STATUS_DEAD_OBJECT = -32,                 // the other side is gone
    STATUS_NOT_ENOUGH_DATA = -61,             // a read past the end of the parcel
    STATUS_UNKNOWN_TRANSACTION = -74,         // the interface has no such method
    STATUS_UNEXPECTED_NULL = -0x7ffffff8,     // null where a value must be
    STATUS_FAILED_TRANSACTION = -0x7ffffffe,  // the message could not be sent or understood
    STATUS_UNKNOWN_ERROR = -0x7fffffff - 1,
};

using binder_exception_t = int32_t;

enum : binder_exception_t {
    EX_NONE = 0,
    EX_ILLEGAL_ARGUMENT = -3,
    EX_SERVICE_SPECIFIC = -8,      // the code is in AStatus_getServiceSpecificError
    EX_TRANSACTION_FAILED = -129,  // never on the wire: the code is in AStatus_getStatus
};

struct AStatus;

[[nodiscard]] AStatus* AStatus_newOk();
[[nodiscard]] AStatus* AStatus_fromExceptionCode(binder_exception_t exception);
[[nodiscard]] AStatus* AStatus_fromServiceSpecificError(int32_t code);
// OK for STATUS_OK, else EX_TRANSACTION_FAILED that carries the code.
[[nodiscard]] AStatus* AStatus_fromStatus(binder_status_t status);

bool AStatus_isOk(const AStatus* status);
binder_exception_t AStatus_getExceptionCode(const AStatus* status);
// 0 unless the exception is EX_SERVICE_SPECIFIC.
int32_t AStatus_getServiceSpecificError(const AStatus* status);
// STATUS_OK unless the exception is EX_TRANSACTION_FAILED.
binder_status_t AStatus_getStatus(const AStatus* status);
void AStatus_delete(AStatus* status);
