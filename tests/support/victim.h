// A thread that a test stops or ends from outside, as its owner holds it: a handle of the system's
// and its identifier.

#pragma once

#include <gtest/gtest.h>

#ifdef _WIN32
#  include <windows.h>
#else
#  include <pthread.h>
#  include <sched.h>
#endif

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>
#include <utility>

#include "platform/thread.h"
#include "platform/threadControl.h"
#include "support/waitWhile.h"

// The thread sanitizer holds signals back until the thread calls something, and waits for ever for
// the end of a thread that ended without its knowledge.
#ifdef __SANITIZE_THREAD__
inline constexpr bool kThreadsCanBeStopped = false;
#else
inline constexpr bool kThreadsCanBeStopped = true;
#endif
#define SKIP_WHERE_NO_THREAD_STOPS() \
  if (!kThreadsCanBeStopped)         \
  GTEST_SKIP() << "the thread sanitizer holds signals back and misses ends by force"

class Victim {
  public:
    // Returns when the thread runs.
    explicit Victim(std::function<void()> body) : m_body(std::move(body)) {
#ifdef _WIN32
        m_handle = ::CreateThread(nullptr, 0, enter, this, 0, nullptr);
#else
        pthread_t thread = {};
        if (::pthread_create(&thread, nullptr, enter, this) == 0)
            m_handle = reinterpret_cast<void*>(thread);
#endif
        waitWhile(m_id, 0U);
    }
    // Of a thread that was not joined.
    ~Victim() {
        if (m_handle == nullptr)
            return;
        platform::threadCalls.terminate(m_handle, 0);
        join();
    }
    Victim(const Victim&) = delete;
    Victim& operator=(const Victim&) = delete;

    void* handle() const {
        return m_handle;
    }
    std::uint32_t id() const {
        return m_id.load();
    }

    // The owner knows it no longer.
    void forget() {
        m_handle = nullptr;
    }

    // Waits for its end and gives it back to the system.
    void join() {
#ifdef _WIN32
        ::WaitForSingleObject(m_handle, INFINITE);
        ::CloseHandle(m_handle);
#else
        EXPECT_EQ(::pthread_join(reinterpret_cast<pthread_t>(m_handle), nullptr), 0);
#endif
        forget();
    }

    // Waits for its end alone.
    void awaitEnd() const {
        std::uint32_t code = platform::kStillActive;
        while (platform::threadCalls.exitCodeOf(m_handle, &code) && code == platform::kStillActive)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }

  private:
#ifdef _WIN32
    static DWORD WINAPI enter(void* argument) {
        static_cast<Victim*>(argument)->run();
        return 0;
    }
#else
    static void* enter(void* argument) {
        static_cast<Victim*>(argument)->run();
        return nullptr;
    }
#endif
    void run() {
        m_id.store(platform::threadId());
        m_body();
    }

    std::function<void()> m_body;
    std::atomic<std::uint32_t> m_id{0};
    void* m_handle = nullptr;
};

// Resumes a thread that is about to suspend itself, once it has; the former count.
inline std::uint32_t resumeOnceSuspended(const Victim& victim) {
    for (;;) {
        if (const std::uint32_t former = platform::threadCalls.resume(victim.handle()))
            return former;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

// Sleeps for ever.
inline void hang() {
#ifdef _WIN32
    // By the system's own call: on its way to the same the run-time copies a handle, and a thread
    // that is ended there leaves Wine with a lock that nobody gives back.
    ::Sleep(INFINITE);
#else
    for (;;)
        std::this_thread::sleep_for(std::chrono::hours(1));
#endif
}

// Bodies that count as long as they run.
class Counting {
  public:
    void operator()() {
        while (!m_stop.load(std::memory_order_relaxed))
            m_count.fetch_add(1, std::memory_order_relaxed);
    }
    void stop() { m_stop.store(true); }
    // Waits for the next count, which a busy machine may put off, at most half a minute.
    bool goesOn() const {
        const std::uint64_t former = m_count.load();
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (m_count.load() == former) {
            if (std::chrono::steady_clock::now() > end)
                return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return true;
    }
    // Whether nothing was counted for a moment.
    bool standsStill() const {
        const std::uint64_t former = m_count.load();
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        return m_count.load() == former;
    }

  private:
    std::atomic<std::uint64_t> m_count{0};
    std::atomic<bool> m_stop{false};
};
