// The reader-writer lock of TCurrentData.
//
// One word: how many readers hold it, whether a writer does, and whether one waits, which keeps new
// readers out.  Taking and giving back a lock that nobody else wants is one atomic operation; who
// has to wait does so in rwLock.cpp.  The run-time's own lock allocates at its first use on one of
// the two systems and never frees that.  A thread does not take a lock twice.

#pragma once

#include "vdreader/curdata.hpp"

namespace rwLock {
inline constexpr std::uint32_t kWriter = 0x8000'0000;
inline constexpr std::uint32_t kWaiting = 0x4000'0000;
} // namespace rwLock

inline bool TCurrentData::RwLock::try_lock() {
    std::uint32_t seen = m_state.load(std::memory_order_relaxed);
    while ((seen & ~rwLock::kWaiting) == 0)
        // Other writers that wait set the mark again when they look next.
        if (m_state.compare_exchange_weak(seen, rwLock::kWriter, std::memory_order_acquire,
                                          std::memory_order_relaxed))
            return true;
    return false;
}

inline void TCurrentData::RwLock::lock() {
    if (!try_lock())
        waitForAll();
}

inline void TCurrentData::RwLock::unlock() {
    m_state.exchange(0, std::memory_order_release);
    wake();
}

inline bool TCurrentData::RwLock::tryShared() {
    std::uint32_t seen = m_state.load(std::memory_order_relaxed);
    while ((seen & (rwLock::kWriter | rwLock::kWaiting)) == 0)
        if (m_state.compare_exchange_weak(seen, seen + 1, std::memory_order_acquire,
                                          std::memory_order_relaxed))
            return true;
    return false;
}

inline void TCurrentData::RwLock::lock_shared() {
    if (!tryShared())
        waitForWriters();
}

inline void TCurrentData::RwLock::unlock_shared() {
    if (m_state.fetch_sub(1, std::memory_order_release) == (rwLock::kWaiting | 1))
        wake();
}
