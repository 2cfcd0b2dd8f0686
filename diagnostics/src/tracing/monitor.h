// The one monitor thread of a tracer, which any thread may start and stop, and its pause between
// two reports.

#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

#include "platform/calls.h"
#include "platform/process.h"
#include "platform/thread.h"

// When a start is done: a later one does nothing then, until a shut-down.
enum class StartIsDone { WhenItBegins, WhenTheThreadRuns };

// `Tracer` derives from libn::Thread, and the three variables are the tracer's own.  Never
// destroyed, since a host's threads may start and stop monitors as long as they live.
template <class Tracer>
class Monitor {
  public:
    Monitor(std::atomic<bool>& started, std::atomic<bool>& done, std::atomic<Tracer*>& thread,
            StartIsDone isDone)
        : m_started(started), m_done(done), m_thread(thread), m_isDone(isDone) {}

    // Starts the thread unless there is one.  A call that meets another waits until that is done.
    // The call that starts calls `before` first.  What that or the start raises goes on; where it
    // was not done before that, a later call tries again.  The caller holds no lock.
    template <class Before>
    void start(const char* tag, Before before) {
        while (m_started.exchange(true)) {
            while (m_started && !m_done)
                platform::yieldThread();
            if (m_done)
                return;
        }
        const std::lock_guard guard(m_lock);
        if (m_isDone == StartIsDone::WhenItBegins)
            m_done = true;
        try {
            before();
            replace(tag);
        } catch (...) {
            if (!m_done)
                m_started = false; // whoever waits for it tries in its place
            throw;
        }
        m_done = true;
    }

    // Takes the thread away, if there is one: returns when it has seen that it is to stop, and has
    // ended.
    void shutDown() {
        std::unique_ptr<Tracer> stopped; // deleted when the lock is free again
        const std::lock_guard guard(m_lock);
        m_done = false;
        m_started = false;
        stopped.reset(m_thread.exchange(nullptr));
    }

    // The process ends; a library that has started a thread is not unloaded before that.
    void endAtExit() {
        // Threads that the system has stopped are gone, and may hold the locks of the heap.
        if (!platform::processEnds())
            delete m_thread.exchange(nullptr);
    }

  private:
    void replace(const char* tag) {
        auto fresh = std::make_unique<Tracer>();
        fresh->setTag(tag);
        delete m_thread.exchange(nullptr);
        fresh->start();
        m_thread = fresh.release();
    }

    std::mutex m_lock; // of starting and of taking the thread away
    std::atomic<bool>& m_started;
    std::atomic<bool>& m_done;
    std::atomic<Tracer*>& m_thread;
    StartIsDone m_isDone;
};

// Waits so many seconds, in steps of one, and ends early when `stops` says so.
template <class Stops>
void pauseBetweenCycles(std::int32_t seconds, Stops stops) {
    for (std::int32_t i = 0; i < seconds && !stops(); ++i)
        platform::calls.sleep(1000);
}
