#include <binder/status.h>

// `code` is the service's error code with EX_SERVICE_SPECIFIC, the transport code with
// EX_TRANSACTION_FAILED, and 0 with any other exception.
struct AStatus {
    binder_exception_t exception;
    int32_t code;
};

AStatus* AStatus_newOk() {
    return new AStatus{EX_NONE, 0};
}

AStatus* AStatus_fromExceptionCode(binder_exception_t exception) {
    // With transport code 0, AStatus_getStatus would return STATUS_OK for a failure.
    if (exception == EX_TRANSACTION_FAILED) return AStatus_fromStatus(STATUS_UNKNOWN_ERROR);
    return new AStatus{exception, 0};
}

AStatus* AStatus_fromServiceSpecificError(int32_t code) {
    return new AStatus{EX_SERVICE_SPECIFIC, code};
}

AStatus* AStatus_fromStatus(binder_status_t status) {
    if (status == STATUS_OK) return AStatus_newOk();
    return new AStatus{EX_TRANSACTION_FAILED, status};
}

bool AStatus_isOk(const AStatus* status) {
    return status->exception == EX_NONE;
}

binder_exception_t AStatus_getExceptionCode(const AStatus* status) {
    return status->exception;
}

int32_t AStatus_getServiceSpecificError(const AStatus* status) {
    return status->exception == EX_SERVICE_SPECIFIC ? status->code : 0;
}

binder_status_t AStatus_getStatus(const AStatus* status) {
    return status->exception == EX_TRANSACTION_FAILED ? status->code : STATUS_OK;
}

void AStatus_delete(AStatus* status) {
    delete status;
}
