// The name that this process serves, at most one, from its registration until the process ends.
#pragma once

#include <base/unique_fd.h>
#include <binder/ibinder.h>

namespace binder {

struct Registration {
    AIBinder* binder = nullptr;  // a strong reference; null: nothing is registered
    base::UniqueFd listener;     // non-blocking
    bool handed_over = false;    // systemd passed the listener and also holds it
};

// Set by AServiceManager_registerLazyService, read by the server. Not locked: one thread at a time.
Registration& TheRegistration();

}  // namespace binder
