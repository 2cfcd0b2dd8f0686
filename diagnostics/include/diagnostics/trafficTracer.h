// The traffic tracer: sums of bytes by code and direction, and the monitor that reports them.

#pragma once

#include <atomic>
#include <cstdint>
#include <map>

#include "libn/CS.h"
#include "libn/Thread.h"

using TrafficSums = std::map<std::uint16_t, std::uint64_t>;

// The sums of the running period, guarded by trafficLock(); there, and empty, from the load on.
// They and the lock stay until the process is gone, since a host's threads may report as long as it
// lives.  The lock is made by the first who takes it, and by then a monitor keeps the library
// loaded.
TrafficSums& incomingTraffic();
TrafficSums& outgoingTraffic();
libn::CS& trafficLock();

extern std::atomic<bool> trafficEnabled;

// A cycle reads the settings, switches tracing, and reports what came since the last one.
class TrafficMonitorThread : public libn::Thread {
  public:
    ~TrafficMonitorThread() override { stop(); }
    void run() override;
};

// See Monitor.
extern std::atomic<bool> trafficInitStarted;
extern std::atomic<bool> trafficInitDone;
extern std::atomic<TrafficMonitorThread*> trafficMonitor;

// Seconds between cycles, of the monitor's last reading.
extern std::atomic<std::int32_t> trafficPeriod;
