// Where the allocation entry points of vdreader/memtrace.h meet the tracer's tables.
//
// The tables belong to a higher layer, which enters its functions here.

#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "platform/threadCounts.h"

// Calls of one entry point since the process began, modulo 2^32.  Any thread.
class MemCount {
  public:
    constexpr explicit MemCount(platform::ThreadCount count) : m_count(count) {}
    void raise() const noexcept { platform::raiseThreadCount(m_count); }
    // The same in a few instructions; false where it takes more, and nothing is counted then.
    bool raiseQuickly() const noexcept { return platform::raiseOwnCount(m_count); }
    operator std::uint32_t() const noexcept { return platform::sumOfThreadCounts(m_count); }

  private:
    platform::ThreadCount m_count;
};
inline constexpr MemCount memCountMalloc{platform::ThreadCount::allocations};
inline constexpr MemCount memCountFree{platform::ThreadCount::releases};
inline constexpr MemCount memCountRealloc{platform::ThreadCount::reallocations};

// Whether blocks are entered; written by the tracer alone, by exchange.
extern std::atomic<bool> memTraceEnabled;

// A plain lock that costs one locked instruction where nobody waits: with tracing on, every
// allocation of the process takes it.  Never destroyed: objects that live as long as the process
// take their views away at its end.
class MemTraceLock {
  public:
    void lock() noexcept {
        if (!try_lock())
            wait();
    }
    bool try_lock() noexcept { return !m_held.exchange(true, std::memory_order_acquire); }
    void unlock() noexcept { m_held.store(false, std::memory_order_release); }

  private:
    void wait() noexcept;

    std::atomic<bool> m_held{false};
};

// Held around both functions below, and around the allocation that they are told of: no second
// thread can be given an address before its entry is made.
MemTraceLock& memTraceLock() noexcept;

struct MemTraceTable {
    void (*enter)(void* block, std::size_t size, const char* file, int line);
    void (*remove)(void* block);
};

// Does nothing until the tracer has put its functions here.
extern MemTraceTable memTraceTable;
