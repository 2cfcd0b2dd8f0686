// Queue and threads of the message logger.

#include "logs/SysLogger.h"

#include <chrono>
#include <stdexcept>

#include "dw_util/pathRule.h"
#include "libn/Assert.h"
#include "platform/clock.h"
#include "platform/startUp.h"
#include "platform/thread.h"
#include "vdreader/log.h"
#include "vdreader/postmortem.h"

namespace {

constexpr char kSource[] = "Common/src/dw_util";
constexpr std::uint32_t kAllPriorities = 14;
// Records that the worker writes before it looks whether somebody drains.
constexpr std::size_t kWorkerBatch = 64;
constexpr int kMostYields = 100;

std::string resolved(const std::string& path) {
    PathBuffer full = {};
    resolvePath(full, path.c_str());
    return full;
}

} // namespace

std::thread SysLogger::startWorker(SysLogger& logger) {
    platform::stayLoaded();
    const platform::SignalsKeptOff keptOff;
    return std::thread([&logger] { logger.workerLoop(); });
}

SysLogger::SysLogger(const std::string& path, std::uint32_t scheme, StartWorker start)
    : filePath(resolved(path)),
      stream(std::make_unique<LogStream>(filePath.c_str())),
      schemeType(scheme) {
    if (!stream->isOpen())
        throw std::runtime_error("Failed to init logger.");
    levelMask.fill(kAllPriorities);
    diag = std::make_unique<CMsgDiagSet>(fieldsOfScheme(scheme));
    worker = start(*this);
    // Deliberate: behind the start.  A worker that looks earlier ends at once, and its records wait
    // for a drain; hosts that drain by every error line are made for that.
    running.exchange(true);
    constructed = true;
}

SysLogger::~SysLogger() {
    if (running) {
        {
            const std::lock_guard guard(queueMutex);
            running = false;
        }
        wakeUp.notify_one();
    }
    // On the worker itself this raises, and the process ends here.
    if (worker.joinable())
        worker.join();
    for (SysLogRecord* record : queue)
        freeSysLogRecord(record);
}

void SysLogger::post(SysLogRecord* record, Wake wake) {
    OwnedRecord owned(record);
    if (maskOf(record->level()) == 0)
        return;
    bool wakes = false;
    {
        const std::lock_guard guard(queueMutex);
        if (!running)
            return;
        queue.push_front(record);
        owned.release();
        if (wake == Wake::yes) {
            forWorker.store(true, std::memory_order_relaxed);
            wakes = workerSleeps;
        }
    }
    if (wakes)
        wakeUp.notify_one();
}

// 0 for a level that is none of the four.
std::uint32_t SysLogger::maskOf(std::uint8_t level) const {
    switch (static_cast<MsgLevel>(level)) {
        case MsgLevel::Info:
            return levelMask[0];
        case MsgLevel::Error:
            return levelMask[1];
        case MsgLevel::Warning:
            return levelMask[2];
        case MsgLevel::Debug:
            return levelMask[3];
        default:
            return 0;
    }
}

bool SysLogger::hasQueued() {
    const std::lock_guard guard(queueMutex);
    return !queue.empty();
}

SysLogger::OwnedRecord SysLogger::takeOldest() {
    const std::lock_guard guard(queueMutex);
    if (queue.empty())
        return nullptr;
    OwnedRecord oldest(queue.back());
    queue.pop_back();
    if (queue.empty())
        forWorker.store(false, std::memory_order_relaxed);
    return oldest;
}

void SysLogger::writeQueued(std::size_t most) {
    const std::lock_guard guard(outputMutex);
    for (; most > 0; --most) {
        const OwnedRecord oldest = takeOldest();
        if (oldest == nullptr)
            break;
        writeWhole(*oldest);
    }
}

void SysLogger::drain() {
    struct Drainer {
        std::atomic<int>& count;
        explicit Drainer(std::atomic<int>& ofAll) : count(ofAll) { ++count; }
        ~Drainer() { --count; }
    };
    const Drainer drainer(draining);
    std::size_t most = 0;
    {
        const std::lock_guard guard(queueMutex);
        most = queue.size();
    }
    try {
        // With nothing queued this waits for the record that the worker has in its hand.
        writeQueued(most);
    } catch (...) {
        leaveToWorker();
        throw;
    }
}

void SysLogger::leaveToWorker() {
    bool wakes = false;
    {
        const std::lock_guard guard(queueMutex);
        forWorker = !queue.empty();
        wakes = forWorker && workerSleeps;
    }
    if (wakes)
        wakeUp.notify_one();
}

// The worker has nobody to raise to.
void SysLogger::writeOnWorker() {
    try {
        writeQueued(kWorkerBatch);
    } catch (...) {
        libn::reportUnhandled("SysLogger::workerLoop", kSource, __LINE__);
    }
}

// Waits a little for a record without sleeping, since waking costs the next caller more than the
// writing of its line.  False if none came.
bool SysLogger::lingers() {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point end = Clock::now() + std::chrono::microseconds(50);
    while (!forWorker.load(std::memory_order_relaxed)) {
        if (!running || Clock::now() > end)
            return false;
        platform::yieldThread();
    }
    return true;
}

// Leaves the constructor time to set the flag, also on a machine that is busy.
void SysLogger::setUpWorker() {
    try {
        util_set_mark("SYSLOG");
    } catch (...) {
        // No memory for a mark: the lines of this thread go without.
    }
    constexpr int kPatience = 100;
    for (int i = 0; i < kPatience && !constructed; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

void SysLogger::workerLoop() {
    util_set_se_translator(seh_translator);
    setUpWorker();
    while (running) {
        // Who drains comes first; a drain that takes long is waited for at the output's lock.
        for (int i = 0; i < kMostYields && draining.load() > 0; ++i)
            platform::yieldThread();
        if (lingers()) {
            writeOnWorker();
        } else {
            std::unique_lock lock(queueMutex);
            workerSleeps = true;
            wakeUp.wait(lock, [this] { return forWorker || !running; });
            workerSleeps = false;
        }
    }
    while (hasQueued())
        writeOnWorker();
}

void submit(SysLogRecord* record, SysLogger& logger, SysLogger::Wake wake) {
    if (logger.scheme() != 1) {
        const platform::WallTime now = platform::calls.wallClock();
        const std::tm local = platform::localTime(now.seconds);
        record->date = static_cast<std::uint32_t>(local.tm_mday | (local.tm_mon + 1) << 8 |
                                                  ((local.tm_year + 1900) & 0xFFF) << 16) |
                       static_cast<std::uint32_t>(local.tm_wday) << 28;
        record->time = static_cast<std::uint32_t>(now.milliseconds | local.tm_sec << 10 |
                                                  local.tm_min << 16 | local.tm_hour << 24);
    }
    record->threadId = platform::threadId();
    logger.post(record, wake);
}
