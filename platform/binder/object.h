// What the serving and looking-up sides need of a binder object beyond its public functions.
#pragma once

#include <base/unique_fd.h>
#include <binder/ibinder.h>

namespace binder {

// A binder whose transactions go to the process at the other end of a connected socket.
[[nodiscard]] AIBinder* NewRemoteBinder(base::UniqueFd connection);

// Runs the transaction function of a local binder on a request, from its start, and an empty
// reply; leaves the reply at its start. A failure's reply is not to be used.
[[nodiscard]] binder_status_t RunTransaction(AIBinder* binder, transaction_code_t code,
                                             const AParcel* request, AParcel* reply);

}  // namespace binder
