// The one name that this process serves, from its registration until the process ends.
#pragma once

#include <base/unique_fd.h>
#include <binder/ibinder.h>

namespace binder {

struct Registration {
    AIBinder* binder = nullptr;  // holds a strong reference; null: nothing is registered
    base::UniqueFd listener;     // does not block
    bool handed_over = false;    // whoever started this process holds the listener too
};

// Written by the registration, read by the serving thread: one thread at a time.
Registration& TheRegistration();

}  // namespace binder
