// Handing out of finished lines: to the logger, to the thread's files and to the console.
//
// Where the process ends and its other threads are gone, the locks of the logs may be held for
// good, and lines are dropped.

#include <boost/core/demangle.hpp>

#include <algorithm>
#include <cstring>
#include <iostream>
#include <typeinfo>

#include "dw_util/logLine.h"
#include "dw_util/logSinks.h"
#include "libn/Assert.h"
#include "logs/Events.h"
#include "logs/logger.h"
#include "platform/process.h"
#include "platform/thread.h"

namespace {

constexpr char kSource[] = "Common/src/dw_util";
constexpr std::uint32_t kLineMessage = 1;
// Looks at a lock before its holder counts as one that is kept waiting.
constexpr int kMostYields = 20;

// Keeps the thread's line while a report is built in its buffer.
class LineKeeper {
  public:
    LineKeeper() : m_length(getaptr() - getabuf()) {
        std::memcpy(m_line, getabuf(), sizeof m_line);
    }
    ~LineKeeper() {
        std::memcpy(getabuf(), m_line, sizeof m_line);
        threadLogState().aptr = getabuf() + m_length;
    }
    LineKeeper(const LineKeeper&) = delete;
    LineKeeper& operator=(const LineKeeper&) = delete;

  private:
    std::ptrdiff_t m_length;
    char m_line[kLineSize + 1];
};

// The report is a line itself; where it fails the same way, once is enough.
void reportOnce(int line) {
    bool& reports = threadLogState().reportsLogger;
    if (reports)
        return;
    reports = true;
    const LineKeeper keeper;
    libn::reportUnhandled("aflushSysLog", kSource, line);
    reports = false;
}

// Takes nothing from the heap of C++, which may be what failed.
void printCaught(const std::exception& failure) {
    const char* const type = typeid(failure).name();
    const boost::core::scoped_demangled_name readable(type);
    std::cerr << "aflushSysLog:: caught " << (readable.get() != nullptr ? readable.get() : type)
              << "(" << failure.what() << ")" << '\n'
              << std::flush;
}

void aflushSysLog(const char* line, SysLogger::Wake wake) {
    SysLogger* const logger = sysLogger.load(std::memory_order_acquire);
    if (logger == nullptr)
        return;
    try {
        std::unique_ptr<SysLogRecord, SysLogRecordFree> record(
            newSysLogRecord(static_cast<std::uint8_t>(MsgLevel::Info), kLineMessage));
        addStringParam(*record, line);
        submit(record.release(), *logger, wake);
    } catch (const std::exception& failure) {
        printCaught(failure);
        reportOnce(348);
    } catch (...) {
        reportOnce(353);
    }
}

void drainSysLog() {
    if (SysLogger* const logger = sysLogger.load(std::memory_order_acquire))
        logger->drain();
}

// The calling thread's line with the line ends of Windows; a line end stays whole.
// Deliberate: cut at 2000 bytes that may be fewer of the line, while the event log has it all.
// Readers of error files have buffers of that size.
std::size_t copyLine(char (&to)[kLineSize + 1]) {
    std::size_t size = 0;
    const char* const end = getaptr();
    for (const char* from = getabuf(); from < end && size < kLineSize;) {
        const auto left = std::min(static_cast<std::size_t>(end - from), kLineSize - size);
        const auto* feed = static_cast<const char*>(std::memchr(from, '\n', left));
        const std::size_t plain = feed != nullptr ? static_cast<std::size_t>(feed - from) : left;
        std::memcpy(to + size, from, plain);
        size += plain;
        from += plain;
        if (feed != nullptr) {
            to[size++] = '\r';
            to[size++] = '\n';
            ++from;
        }
    }
    return size;
}

// Who has the target may be kept waiting by its file or stream: then the worker writes the line of
// the thread that waits here.
std::unique_lock<std::recursive_mutex> lockOf(EVENTS& target) {
    std::unique_lock lock(target.lock, std::try_to_lock);
    for (int i = 0; i < kMostYields && !lock.owns_lock(); ++i) {
        platform::yieldThread();
        lock.try_lock();
    }
    if (!lock.owns_lock()) {
        if (SysLogger* const logger = sysLogger.load(std::memory_order_acquire))
            logger->leaveToWorker();
        lock.lock();
    }
    return lock;
}

// A copy of the pointer: the target stays while it is written.
void aflushFile(std::shared_ptr<EVENTS> target) {
    if (target == nullptr)
        return;
    char text[kLineSize + 1];
    const std::size_t size = copyLine(text);
    {
        const std::unique_lock guard = lockOf(*target);
        if (target->provider != nullptr && target->provider->isGood())
            target->provider->write(text, size);
    }
    target.reset();
}

// What is logged as an error is on the disk when the call returns.
// Deliberate: a line that meets no other does not wake the worker, its own thread drains.  Waking
// costs hosts that log errors by the thousand more than the writing.
void aflushErrors(const char* line) {
    if (platform::processEnds())
        return;
    const std::shared_ptr<EVENTS> console = Events<ErrorsTlsPtr>::linkOfLines();
    // A console may keep its writer waiting: then the worker writes the line.
    aflushSysLog(line, console != nullptr ? SysLogger::Wake::yes : SysLogger::Wake::no);
    try {
        aflushFile(threadLogState().errorsFile);
        aflushFile(console);
    } catch (...) {
        drainSysLog(); // nobody else was woken for the line
        throw;
    }
    drainSysLog();
}

// Deliberate: nothing goes through the thread's own event file, which is made and rotated alone.
// The logger has the same file open and keeps the order of all threads.
void flushEvents(const char* line) {
    if (platform::processEnds())
        return;
    aflushSysLog(line, SysLogger::Wake::yes);
    aflushFile(Events<EventsTlsPtr>::linkOfLines());
}

void flushExceptions(const char* line) {
    if (platform::processEnds())
        return;
    aflushSysLog(line, SysLogger::Wake::no);
    drainSysLog();
}

void flushNetEvents(const char*) {
    if (platform::processEnds())
        return;
    aflushFile(threadLogState().netEventsFile);
    aflushFile(Events<NetEventsTlsPtr>::linkOfLines());
}

// Lines find their way from the moment the library is loaded.
const bool installed = [] {
    logSinks = {aflushErrors, flushEvents, flushExceptions, flushNetEvents};
    return true;
}();

} // namespace
