// Whether another thread may make its dump or report now.

#pragma once

#include <thread>

#include "diagnostics/stackReport.h"

inline bool dumpLockIsFree() {
    bool free = false;
    std::thread([&free] {
        free = dumpLock().try_lock();
        if (free)
            dumpLock().unlock();
    }).join();
    return free;
}
