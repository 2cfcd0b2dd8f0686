// Counters that threads raise without getting in each other's way.
//
// Linux: each thread has a line of counters of its own, which it hands on at its end, so that the
// sums keep what ended threads counted.  Windows: threads share some lines by their numbers.

#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace platform {

// The counters that there are, all 0 when the process begins.
enum class ThreadCount : std::size_t { allocations, releases, reallocations };

struct alignas(64) ThreadCountLine {
    std::atomic<std::uint32_t> counts[3];
    std::atomic<bool> taken;
};

// All calls that have returned, on all threads and modulo 2^32.
std::uint32_t sumOfThreadCounts(ThreadCount count) noexcept;

// Raises a counter for a thread without a line of its own, and gives it one if it can.
void raiseSharedCount(ThreadCount count) noexcept;

#ifdef _WIN32
// Raises a counter in the calling thread's own line; false where it has none.
inline bool raiseOwnCount(ThreadCount) noexcept {
    return false;
}
#else
namespace detail {
extern thread_local constinit ThreadCountLine* threadCountLine
    __attribute__((tls_model("initial-exec")));
}

inline bool raiseOwnCount(ThreadCount count) noexcept {
    ThreadCountLine* const line = detail::threadCountLine;
    if (line == nullptr)
        return false;
    // Nobody else writes here, so a load and a store are enough.
    auto& own = line->counts[static_cast<std::size_t>(count)];
    own.store(own.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    return true;
}
#endif

inline void raiseThreadCount(ThreadCount count) noexcept {
    if (!raiseOwnCount(count)) [[unlikely]]
        raiseSharedCount(count);
}

} // namespace platform
