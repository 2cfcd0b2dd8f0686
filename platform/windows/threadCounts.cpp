// Lines of counters on Windows: a thread's number picks its line, which few others share.

#include "platform/threadCounts.h"

#include <windows.h>

namespace platform {

namespace {
constexpr std::size_t kLines = 64;
constinit ThreadCountLine lines[kLines] = {};
} // namespace

void raiseSharedCount(ThreadCount count) noexcept {
    const std::size_t line = ::GetCurrentThreadId() / 4 % kLines; // numbers are multiples of 4
    lines[line].counts[static_cast<std::size_t>(count)].fetch_add(1, std::memory_order_relaxed);
}

std::uint32_t sumOfThreadCounts(ThreadCount count) noexcept {
    std::uint32_t sum = 0;
    for (const ThreadCountLine& line : lines)
        sum += line.counts[static_cast<std::size_t>(count)].load(std::memory_order_relaxed);
    return sum;
}

} // namespace platform
