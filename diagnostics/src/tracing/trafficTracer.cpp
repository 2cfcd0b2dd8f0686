// Sums and monitor of the traffic tracer.

#include "diagnostics/trafficTracer.h"

#include <mutex>
#include <utility>

#include "libn/Ini.h"
#include "libn/TraceLine.h"
#include "monitor.h"
#include "platform/lasting.h"
#include "vdreader/log.h"
#include "vdreader/tracing.h"

constinit std::atomic<bool> trafficEnabled{false};
constinit std::atomic<bool> trafficInitStarted{false};
constinit std::atomic<bool> trafficInitDone{false};
constinit std::atomic<TrafficMonitorThread*> trafficMonitor{nullptr};
constinit std::atomic<std::int32_t> trafficPeriod{0};

TrafficSums& incomingTraffic() {
    static const platform::Lasting<TrafficSums> sums;
    return sums.get();
}
TrafficSums& outgoingTraffic() {
    static const platform::Lasting<TrafficSums> sums;
    return sums.get();
}

libn::CS& trafficLock() {
    static const platform::Lasting<libn::CS> lock;
    return lock.get();
}

namespace {

// Deliberate: a start that failed is none, and the next call tries again.  A caller that waited for
// a done start would wait for ever otherwise.
Monitor<TrafficMonitorThread>& monitor() {
    static const platform::Lasting<Monitor<TrafficMonitorThread>> one(
        trafficInitStarted, trafficInitDone, trafficMonitor, StartIsDone::WhenTheThreadRuns);
    return one.get();
}

// Deliberate: any number but 0 switches tracing on, whereas the memory tracer knows 1 alone.  Ini
// files in the field rely on both.
bool enabledIn(const libn::Ini& ini) {
    return ini.getInt("traffic_trace", "enable", 0) != 0;
}

// Deliberate: once in the life of the process.  A host that starts the tracer counts from that
// moment on, and a later start leaves the switch to the monitor.
void switchAtFirstInit() {
    static bool trafficFirstInit = false; // under the monitor's lock
    if (trafficFirstInit)
        return;
    trafficEnabled = enabledIn(libn::Ini("sarn.ini"));
    trafficFirstInit = true;
}

[[gnu::noinline]] void addTraffic(std::uint16_t code, std::size_t bytes, bool incoming) {
    const std::lock_guard guard(trafficLock());
    (incoming ? incomingTraffic() : outgoingTraffic())[code] += bytes;
}

struct Period {
    bool switchedOff = false;
    bool enabled = false;
    TrafficSums incoming;
    TrafficSums outgoing;
};

// Begins a new period.
Period takePeriod(bool enable) {
    Period period;
    const std::lock_guard guard(trafficLock());
    if (trafficEnabled && !enable) {
        period.switchedOff = true;
        // Deliberate: dropped without a report, which is about times that were traced to their end.
        incomingTraffic().clear();
        outgoingTraffic().clear();
    }
    trafficEnabled = period.enabled = enable;
    period.incoming = std::exchange(incomingTraffic(), {});
    period.outgoing = std::exchange(outgoingTraffic(), {});
    return period;
}

std::uint64_t totalOf(const TrafficSums& sums) {
    std::uint64_t total = 0;
    for (const auto& [code, bytes] : sums)
        total += bytes;
    return total;
}

void writeSums(const char* format, const TrafficSums& sums) {
    for (const auto& [code, bytes] : sums)
        if (bytes > 0)
            event(format, static_cast<unsigned>(code), static_cast<std::size_t>(bytes));
}

// The process ends.  The sums stay: threads of the host still report.
struct Leaving {
    ~Leaving() { monitor().endAtExit(); }
};

} // namespace

void TrafficMonitorThread::run() {
    bool enable = false;
    {
        const libn::Ini ini("sarn.ini");
        enable = enabledIn(ini);
        trafficPeriod = ini.getInt("traffic_trace", "period", 600);
    }
    const Period period = takePeriod(enable);
    if (period.switchedOff)
        event("Traffic tracing disabled");
    libn::TraceLine("Traffic report", period.enabled ? 0 : 1)
        << "incoming<" << totalOf(period.incoming) << '>' << "outgoing<" << totalOf(period.outgoing)
        << '>';
    writeSums("I %u %zu", period.incoming);
    writeSums("O %u %zu", period.outgoing);
    pauseBetweenCycles(trafficPeriod, [this] { return stopRequested(); });
}

extern "C" {

void TrafficTraceInit(void) {
    static const Leaving leaving;
    monitor().start("TRAF", switchAtFirstInit);
}

void TrafficTraceShutDown(void) {
    monitor().shutDown();
}

void TrafficTrace(std::uint16_t code, std::size_t bytes, bool incoming) {
    if (trafficEnabled.load(std::memory_order_relaxed))
        addTraffic(code, bytes, incoming);
}

} // extern "C"
