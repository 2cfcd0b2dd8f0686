// The memory tracer: what its monitor and the allocation entry points share.

#pragma once

#include <atomic>
#include <cstdint>

#include "libn/Thread.h"
#include "memTables.h"

// The tables, each made on first need and released when tracing is switched off; guarded by
// memTraceLock().
extern MemSites* memSites;
extern MemPointers* memPointers;

// A cycle reads the settings, switches tracing, adds up and reports.
class MemMonitorThread : public libn::Thread {
  public:
    ~MemMonitorThread() override { stop(); }
    void run() override;
};

// See Monitor.
extern std::atomic<bool> memInitStarted;
extern std::atomic<bool> memInitDone;
extern std::atomic<MemMonitorThread*> memMonitor;

// Seconds between cycles, of the monitor's last reading.
extern std::atomic<std::int32_t> memMonitorPeriod;
