#include "remote.h"

#include <cerrno>
#include <utility>

#include "parcel.h"

namespace binder {

// cppcheck-suppress uninitMemberVar
RemoteConnection::RemoteConnection(base::UniqueFd socket)
    : owner_(getpid()), socket_(std::move(socket)) {}

binder_status_t RemoteConnection::Transact(transaction_code_t code, const AParcel& request,
                                           AParcel* reply) {
    if (getpid() != owner_) return STATUS_DEAD_OBJECT;
    const std::lock_guard lock(mutex_);
    if (!socket_) return STATUS_DEAD_OBJECT;
    const binder_status_t failure = Exchange(code, request);
    if (failure != STATUS_OK) {
        socket_.Reset();
        return failure;
    }
    reply->Assign(message_.data());
    return message_.header.word;
}

// STATUS_OK: message_ holds a well-formed reply, which may report a failure.
binder_status_t RemoteConnection::Exchange(transaction_code_t code, const AParcel& request) {
    if (const int error = Send(socket_.get(), kRequestMagic, static_cast<int32_t>(code),
                               request.data, &message_)) {
        const bool gone = error == EPIPE || error == ECONNRESET;
        return gone ? STATUS_DEAD_OBJECT : STATUS_FAILED_TRANSACTION;
    }
    // Signals to the client's process do not end the wait.
    ReceiveResult result = ReceiveResult::kNothing;
    while (result == ReceiveResult::kNothing) {
        result = Receive(socket_.get(), kReplyMagic, &message_);
    }
    if (result == ReceiveResult::kClosed) return STATUS_DEAD_OBJECT;
    if (result != ReceiveResult::kMessage) return STATUS_FAILED_TRANSACTION;
    // A status is 0 or negative, and a failure has no data.
    const int32_t status = message_.header.word;
    const bool valid = status == STATUS_OK || (status < 0 && message_.header.size == 0);
    return valid ? STATUS_OK : STATUS_FAILED_TRANSACTION;
}

}  // namespace binder
