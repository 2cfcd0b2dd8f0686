// Numbers in a mapped file: plain ones at any address, and aligned ones that other processes read
// and write at the same time.

#pragma once

#include <atomic>
#include <cstdint>
#include <cstring>

namespace live {

template <typename Number>
Number load(const unsigned char* at) {
    Number value;
    std::memcpy(&value, at, sizeof value);
    return value;
}

template <typename Number>
void store(unsigned char* at, Number value) {
    std::memcpy(at, &value, sizeof value);
}

// `at` must be a multiple of the number's size.
template <typename Number>
std::atomic_ref<Number> shared(unsigned char* at) {
    static_assert(std::atomic_ref<Number>::is_always_lock_free,
                  "a lock of the run-time would not hold between processes");
    return std::atomic_ref<Number>(*reinterpret_cast<Number*>(at));
}

} // namespace live
