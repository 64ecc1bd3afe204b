// A client's connection to the process that serves a remote binder. Owns the socket. Several
// threads may use it; a mutex serialises their transactions. The first failure closes the
// connection: a late reply would otherwise be returned for the next request.
#pragma once

#include <base/unique_fd.h>
#include <binder/ibinder.h>
#include <unistd.h>

#include <mutex>

#include "message.h"

namespace binder {

class RemoteConnection {
  public:
    // message_ is not initialised: Transact reads only what it received.
    // cppcheck-suppress uninitMemberVar
    explicit RemoteConnection(base::UniqueFd socket);

    // Sends the request, waits for the reply without a time limit, and returns the status in it.
    // STATUS_DEAD_OBJECT: the service closed the connection, or an earlier transaction failed.
    // STATUS_FAILED_TRANSACTION: the request could not be sent or the reply is malformed. `reply`
    // is changed only if a well-formed reply came; it is empty unless the status is STATUS_OK.
    [[nodiscard]] binder_status_t Transact(transaction_code_t code, const AParcel& request,
                                           AParcel* reply);

  private:
    [[nodiscard]] binder_status_t Exchange(transaction_code_t code, const AParcel& request);

    const pid_t owner_;  // A forked process would receive the replies of its parent.
    std::mutex mutex_;
    base::UniqueFd socket_;
    Message message_;
};

}  // namespace binder
