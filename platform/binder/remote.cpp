#include "remote.h"

#include <cerrno>
#include <utility>

namespace binder {

// cppcheck-suppress uninitMemberVar
RemoteConnection::RemoteConnection(base::UniqueFd socket) : socket_(std::move(socket)) {}

binder_status_t RemoteConnection::Transact(transaction_code_t code, const AParcel& request,
                                           AParcel* reply) {
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

// STATUS_OK: message_ is the reply, whatever its status.
binder_status_t RemoteConnection::Exchange(transaction_code_t code, const AParcel& request) {
    if (const int error =
            Send(socket_.get(), kRequestMagic, int32_t(code), request.data, &message_)) {
        const bool gone = error == EPIPE || error == ECONNRESET;
        return gone ? STATUS_DEAD_OBJECT : STATUS_FAILED_TRANSACTION;
    }
    // A client waits for as long as the service takes: signals of its process do not end that.
    ReceiveResult result = ReceiveResult::kNothing;
    while (result == ReceiveResult::kNothing) {
        result = Receive(socket_.get(), kReplyMagic, &message_);
    }
    if (result == ReceiveResult::kClosed) return STATUS_DEAD_OBJECT;
    if (result != ReceiveResult::kMessage) return STATUS_FAILED_TRANSACTION;
    // A status is 0 or negative, and only success comes with data.
    const int32_t status = message_.header.word;
    const bool sane = status <= 0 && (status == STATUS_OK || message_.header.size == 0);
    return sane ? STATUS_OK : STATUS_FAILED_TRANSACTION;
}

}  // namespace binder
