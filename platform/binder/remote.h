// A client's connection to the process that serves a remote binder. One transaction at a time; it
// closes at the first failure, because a late reply would be taken for the answer to the next
// request.
#pragma once

#include <base/unique_fd.h>
#include <binder/ibinder.h>

#include <mutex>

#include "message.h"

namespace binder {

class RemoteConnection {
  public:
    // message_ stays as it is until a message is received into it.
    // cppcheck-suppress uninitMemberVar
    explicit RemoteConnection(base::UniqueFd socket);

    // Waits for the reply. Returns its status, or that of the failure: STATUS_DEAD_OBJECT if the
    // service or an earlier failure closed the connection. Threads take turns.
    [[nodiscard]] binder_status_t Transact(transaction_code_t code, const AParcel& request,
                                           AParcel* reply);

  private:
    binder_status_t Exchange(transaction_code_t code, const AParcel& request);

    std::mutex mutex_;
    base::UniqueFd socket_;
    Message message_;
};

}  // namespace binder
