// Binder objects as seen by the server and the service lookup, in addition to binder/ibinder.h.
#pragma once

#include <base/unique_fd.h>
#include <binder/ibinder.h>

namespace binder {

// A new remote binder, with one reference for the caller. Its transactions go to the process at the
// other end of `connection`, a connected blocking socket.
[[nodiscard]] AIBinder* NewRemoteBinder(base::UniqueFd connection);

// Runs the transaction function of a local binder on `request`, positioned at its start. Returns
// STATUS_OK or a negative status; a positive result of the function becomes STATUS_UNKNOWN_ERROR.
// `reply` is replaced, positioned at its start, and empty after a failure.
[[nodiscard]] binder_status_t RunTransaction(AIBinder* binder, transaction_code_t code,
                                             const AParcel* request, AParcel* reply);

}  // namespace binder
