// Tables and monitor of the memory tracer.
//
// Nothing is logged while the lock is held: the first line of a thread, and its mark, are
// allocations that are traced themselves.

#include "diagnostics/memTracer.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <string>

#include "libn/Ini.h"
#include "libn/TraceLine.h"
#include "libn/memTraceTable.h"
#include "monitor.h"
#include "platform/lasting.h"
#include "vdreader/log.h"
#include "vdreader/tracing.h"

constinit MemSites* memSites = nullptr;
constinit MemPointers* memPointers = nullptr;
constinit std::atomic<bool> memInitStarted{false};
constinit std::atomic<bool> memInitDone{false};
constinit std::atomic<MemMonitorThread*> memMonitor{nullptr};
constinit std::atomic<std::int32_t> memMonitorPeriod{0};

namespace {

// Deliberate: a start whose thread cannot be made stands until the shut-down.  Hosts that start
// both tracers at each of their own starts take the failure once and run on without reports.
Monitor<MemMonitorThread>& monitor() {
    static const platform::Lasting<Monitor<MemMonitorThread>> one(
        memInitStarted, memInitDone, memMonitor, StartIsDone::WhenItBegins);
    return one.get();
}

// ---- the tables, under memTraceLock() ----

void makeSites() {
    if (memSites == nullptr)
        memSites = new MemSites;
}
void makePointers() {
    if (memPointers == nullptr)
        memPointers = new MemPointers;
}

void releaseTables() {
    delete std::exchange(memSites, nullptr);
    delete std::exchange(memPointers, nullptr);
}

void enter(void* block, std::size_t size, const char* file, int line) {
    if (!memTraceEnabled)
        return;
    makeSites();
    const std::int16_t site = memSites->numberOf(file, line);
    makePointers();
    memPointers->enter(block, size, site);
}

void remove(void* block) {
    if (memTraceEnabled && memPointers != nullptr)
        memPointers->remove(block);
}

const bool installed = [] {
    memTraceTable = {enter, remove};
    return true;
}();

// ---- a cycle ----

struct Settings {
    bool enable;
    std::int32_t limit; // bytes; 0: none
    std::int32_t period;
};

Settings readSettings() {
    const libn::Ini ini("sarn.ini");
    return {ini.getBool("mem_trace", "enable", false),
            ini.getInt("mem_trace", "mem_limit", 200'000'000),
            ini.getInt("mem_trace", "period", 60)};
}

struct Figures {
    bool switchedOff = false;
    bool overLimit = false;
    std::uint64_t space = 0;
    std::vector<MemSite> sites;
    std::vector<MemTotal> totals;
};

// Deliberate: without a limit the space stays 0.  It is worked out for the comparison alone, which
// costs a walk over all buckets.
void keepLimit(std::int32_t limit, Figures& figures) {
    if (limit == 0)
        return;
    figures.space = memPointers->space();
    if (limit >= 0 && static_cast<std::uint64_t>(limit) >= figures.space)
        return;
    figures.overLimit = true;
    // Deliberate: the sites stay, and so do the totals that are about to be reported.  What made
    // the tables grow is what the reader of the report looks for.
    memPointers->wipe();
}

Figures takeFigures(const Settings& settings) {
    Figures figures;
    const std::lock_guard guard(memTraceLock());
    if (memTraceEnabled && !settings.enable) {
        figures.switchedOff = true;
        releaseTables();
    }
    if (settings.enable) { // in front of the switch: where they cannot be made, it stays as it was
        makeSites();
        makePointers();
    }
    memTraceEnabled.exchange(settings.enable);
    if (!settings.enable)
        return figures;
    figures.sites = memSites->all();
    figures.totals.resize(figures.sites.size());
    memPointers->addUp(figures.totals);
    keepLimit(settings.limit, figures);
    return figures;
}

const char* behindLastSeparator(const char* file) {
    for (const char* c = file; *c != '\0'; ++c)
        if (*c == '\\' || *c == '/')
            file = c + 1;
    return file;
}

void writeTotals(Figures& figures) {
    std::sort(figures.totals.begin(), figures.totals.end(),
              [](const MemTotal& a, const MemTotal& b) { return a.total > b.total; });
    for (const MemTotal& total : figures.totals) {
        if (total.count == 0)
            continue;
        const MemSite& site = figures.sites[static_cast<std::size_t>(total.site)];
        event("%zu %d %s:%d", static_cast<std::size_t>(total.total),
              static_cast<std::int32_t>(total.count), behindLastSeparator(site.file), site.line);
    }
}

void writeReport(Figures& figures, std::int32_t limit) {
    if (figures.switchedOff)
        event("Memory tracing disabled");
    if (figures.overLimit)
        libn::TraceLine("Trace mem limit exceeded", 0)
            << "space<" << figures.space << '>' << "memLimit<" << limit << '>';
    libn::TraceLine("Memory report", 0)
        << "space<" << figures.space << '>' << "memLimit<" << limit << '>' << "memCountMalloc<"
        << std::uint32_t{memCountMalloc} << '>' << "memCountFree<" << std::uint32_t{memCountFree}
        << '>' << "memCountRealloc<" << std::uint32_t{memCountRealloc} << '>';
    writeTotals(figures);
}

// The process ends.  Tables and switch stay as they are: threads of the host still allocate, and
// one that was ended in the middle of it holds the lock for ever.
struct Leaving {
    ~Leaving() { monitor().endAtExit(); }
};

} // namespace

void MemMonitorThread::run() {
    const Settings settings = readSettings();
    memMonitorPeriod = settings.period;
    Figures figures = takeFigures(settings);
    writeReport(figures, settings.limit);
    pauseBetweenCycles(memMonitorPeriod, [this] { return stopRequested(); });
}

extern "C" {

void MemTraceInit(void) {
    static const Leaving leaving;
    monitor().start("MEMM", [] {});
}

// Deliberate: tracing stays as it is.  Hosts stop the reports and start them again later, and the
// blocks of the time between are in the next one.
void MemTraceShutDown(void) {
    monitor().shutDown();
}

} // extern "C"
