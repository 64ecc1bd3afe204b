// What the fuzz targets share: the start, and the cutting of an input into what a target needs.
// A target says what has to hold with the test framework's macros: a failure prints both values and
// ends the process, and the fuzzer then keeps the input.
#pragma once

#include <gtest/gtest.h>
#include <logging/logging.h>
#include <private_root.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

// To be called first: the private root can only be entered before there is a second thread.
inline void StartFuzzing() {
    GTEST_FLAG_SET(throw_on_failure, true);
    logging::InitLogging(nullptr, [](auto...) {});
    EnterPrivateRoot();
}

using Bytes = std::vector<uint8_t>;

// The input, eaten from the front. Past its end come zeros and nothing.
class Input {
  public:
    Input(const uint8_t* data, size_t size) : rest_(data, size) {}

    bool empty() const { return rest_.empty(); }
    uint8_t Byte() {
        const auto byte = Take(1);
        return byte.empty() ? uint8_t{0} : byte[0];
    }
    std::span<const uint8_t> Take(size_t size) {
        const auto taken = rest_.first(std::min(size, rest_.size()));
        rest_ = rest_.subspan(taken.size());
        return taken;
    }
    std::span<const uint8_t> Rest() { return Take(rest_.size()); }

  private:
    std::span<const uint8_t> rest_;
};
