// Waiting for the reader-writer lock of TCurrentData.
//
// All locks of the process share one place to wait at: loads and closes are rare.  The waiting that
// the run-time has for atomics is not used, since without help of the system it looks at the value
// before it gets ready to be woken and misses a change between the two.

#include "dwdata/rwLock.h"

#include <condition_variable>
#include <mutex>

#include "platform/lasting.h"

namespace {

struct WaitingRoom {
    std::mutex mutex;
    std::condition_variable changed;
};

// Never destroyed: an object that lives as long as the process takes its locks once more at its
// end.
WaitingRoom& waitingRoom() {
    static const platform::Lasting<WaitingRoom> room;
    return room.get();
}

} // namespace

// Takes the lock, or marks it so that the last reader wakes whoever waits.
bool TCurrentData::RwLock::lockOrMark() {
    for (;;) {
        if (try_lock())
            return true;
        std::uint32_t seen = m_state.load(std::memory_order_relaxed);
        if ((seen & ~rwLock::kWaiting) != 0 &&
            m_state.compare_exchange_weak(seen, seen | rwLock::kWaiting, std::memory_order_relaxed))
            return false;
    }
}

void TCurrentData::RwLock::waitForAll() {
    WaitingRoom& room = waitingRoom();
    std::unique_lock guard(room.mutex);
    room.changed.wait(guard, [this] { return lockOrMark(); });
}

void TCurrentData::RwLock::waitForWriters() {
    WaitingRoom& room = waitingRoom();
    std::unique_lock guard(room.mutex);
    room.changed.wait(guard, [this] { return tryShared(); });
}

// The change is made already.  Who looked before it is inside wait once the mutex is free.
void TCurrentData::RwLock::wake() {
    WaitingRoom& room = waitingRoom();
    { const std::lock_guard guard(room.mutex); }
    room.changed.notify_all();
}
