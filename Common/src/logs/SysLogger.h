// The message logger: records are queued by any thread and written to one file by a thread of the
// logger's own, or by whoever drains the queue.
//
// A record is written by the template of its level (CMsgDiag.h).  Every record reaches the file by
// one append, whole unless the disk is full, and records follow each other in the order in which
// they were posted.
//
// Threads: post, drain and writeRecord on any, and post also while the destructor waits for the
// worker.
// Nobody changes a mask while others post.

#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "logs/CMsgDiag.h"
#include "logs/LogStream.h"
#include "logs/SysLogRecord.h"

class SysLogger {
  public:
    // Whether post wakes the worker; a caller that drains next leaves it asleep.
    enum class Wake { yes, no };

    // Starts a thread that runs the logger's loop.  Raises std::system_error where it cannot.
    using StartWorker = std::thread (*)(SysLogger& logger);
    static std::thread startWorker(SysLogger& logger);

    // Resolves the path, opens the file for appending and starts the worker, whose mark is SYSLOG.
    // Raises std::runtime_error "Failed to init logger." where the file does not open.
    SysLogger(const std::string& path, std::uint32_t scheme, StartWorker start = startWorker);

    // Has the worker write what is queued, waits for it and closes the file.  Records that are
    // queued then, which happens where the worker ended early, are released unwritten.  On the
    // worker itself it ends the process.
    ~SysLogger();
    SysLogger(const SysLogger&) = delete;
    SysLogger& operator=(const SysLogger&) = delete;

    // Queues the record, which the logger then owns.  It is released where its level has no mask or
    // is none of the four, and after the stop has begun.  The queue has no limit.
    void post(SysLogRecord* record, Wake wake = Wake::yes);

    // Writes what is queued on the calling thread, and waits for what the worker is writing: what
    // was posted before the call is in the file when it returns.  A record whose writing raises is
    // released, the exception goes on, and the rest stays for the worker or the next drain.
    void drain();

    // Has the worker write what is queued, records of Wake::no among it: for a caller that cannot
    // drain, or not soon.
    void leaveToWorker();

    // Appends the text of one record to the file.  Nothing is written for a null record, a level
    // without a template, a mask that does not let the level's priority pass, and where the record
    // has not as many parameters as the template has fields.  A parameter that is missing or of an
    // unknown type leaves "Syslog parameter of unknown type." on standard error.
    void writeRecord(const SysLogRecord* record);

    std::uint32_t scheme() const { return schemeType; }

    // The worker's loop, for StartWorker.
    void workerLoop();

  private:
    using OwnedRecord = std::unique_ptr<SysLogRecord, SysLogRecordFree>;

    std::uint32_t maskOf(std::uint8_t level) const;
    bool hasQueued();
    OwnedRecord takeOldest();
    void writeQueued(std::size_t most);
    void writeOnWorker();
    void setUpWorker();
    bool lingers();
    void writeWhole(const SysLogRecord& record);
    void putRecord(const SysLogRecord& record, const CMsgDiagElem& elem);
    void putDate(const SysLogRecord& record);
    void putParam(const SysLogParam* param);

    std::deque<SysLogRecord*> queue; // the newest at the front
    std::string filePath;
    std::unique_ptr<LogStream> stream;

  public:
    // Bits by priority, for info, error, warning, debug: 2 lets low pass, 4 normal, 8 high.
    std::array<std::uint32_t, 4> levelMask;

  private:
    std::thread worker;
    std::atomic<bool> running{false};
    std::mutex queueMutex; // of queue, workerSleeps and changes of running and forWorker
    std::condition_variable_any wakeUp;
    const std::uint32_t schemeType;
    std::unique_ptr<CMsgDiagSet> diag;

    std::atomic<bool> constructed{false};
    bool workerSleeps = false;
    std::atomic<bool> forWorker{false}; // something is queued that nobody is about to drain
    std::atomic<int> draining{0};
    // Held from the taking of a record to the end of its writing.  Recursive: a fault inside that
    // comes back here with its report.
    std::recursive_mutex outputMutex;
    bool writing = false; // a record, under outputMutex
};

// Stamps the record with the calling thread's number, and with the time unless the scheme is 1,
// whose lines carry their own; then posts it.
void submit(SysLogRecord* record, SysLogger& logger, SysLogger::Wake wake = SysLogger::Wake::yes);
