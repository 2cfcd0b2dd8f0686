// Lines of counters on POSIX systems.  A line belongs to one thread at a time; threads that find
// none free share the first.

#include "platform/threadCounts.h"

#include <pthread.h>

namespace platform {

namespace {

constexpr std::size_t kLines = 256;
constinit ThreadCountLine lines[kLines] = {};
constinit std::atomic<std::size_t> linesTaken{0};

void handOn(void* line) {
    detail::threadCountLine = nullptr;
    linesTaken.fetch_sub(1, std::memory_order_relaxed);
    static_cast<ThreadCountLine*>(line)->taken.store(false, std::memory_order_release);
}

// A key and not an object of thread_local: those would keep a library that is unloaded in memory.
struct EndKey {
    EndKey() noexcept : good(::pthread_key_create(&key, handOn) == 0) {}
    ~EndKey() {
        if (good.exchange(false))
            ::pthread_key_delete(key);
    }
    pthread_key_t key = 0;
    std::atomic<bool> good;
};

ThreadCountLine* takeLine() noexcept {
    if (linesTaken.load(std::memory_order_relaxed) >= kLines - 1)
        return nullptr;
    for (std::size_t i = 1; i < kLines; ++i)
        if (!lines[i].taken.load(std::memory_order_relaxed) &&
            !lines[i].taken.exchange(true, std::memory_order_acquire))
            return &lines[i];
    return nullptr;
}

} // namespace

namespace detail {

__attribute__((tls_model("initial-exec"))) thread_local constinit ThreadCountLine* threadCountLine =
    nullptr;

} // namespace detail

void raiseSharedCount(ThreadCount count) noexcept {
    static EndKey end;
    if (end.good)
        if (ThreadCountLine* const line = takeLine()) {
            if (::pthread_setspecific(end.key, line) == 0) {
                linesTaken.fetch_add(1, std::memory_order_relaxed);
                detail::threadCountLine = line;
                raiseOwnCount(count);
                return;
            }
            line->taken.store(false, std::memory_order_release);
        }
    lines[0].counts[static_cast<std::size_t>(count)].fetch_add(1, std::memory_order_relaxed);
}

std::uint32_t sumOfThreadCounts(ThreadCount count) noexcept {
    std::uint32_t sum = 0;
    for (const ThreadCountLine& line : lines)
        sum += line.counts[static_cast<std::size_t>(count)].load(std::memory_order_relaxed);
    return sum;
}

} // namespace platform
