// The frame of a worker thread.

#include "libn/Thread.h"

#include <algorithm>
#include <cstring>
#include <system_error>

#include "libn/TraceLine.h"
#include "platform/startUp.h"
#include "platform/thread.h"
#include "vdreader/errors.hpp"
#include "vdreader/log.h"
#include "vdreader/logfiles.h"
#include "vdreader/postmortem.h"

namespace libn {

char currentThreadTag[20] = "MAIN";

namespace {

struct EntryRecord {
    Thread* thread;
};

std::thread makeStandardThread(unsigned (*entry)(void* record), void* record) {
    return std::thread(entry, record);
}

// Deliberate: without a lock, so the last thread to start wins.  It is there for debuggers, and
// those look at one moment.  Threads that start at once write it byte by byte.
void showTag(const std::string& tag) {
    constexpr std::size_t kLimit = sizeof currentThreadTag - 1;
    const std::size_t size = std::min(tag.size(), kLimit);
    const auto put = [](char& place, char value) {
        std::atomic_ref(place).store(value, std::memory_order_relaxed);
    };
    for (std::size_t i = 0; i < size; ++i)
        put(currentThreadTag[i], tag[i]);
    put(currentThreadTag[size], '\0');
    put(currentThreadTag[kLimit], '\0');
}

const char* orEmpty(const char* text) {
    return text != nullptr ? text : "";
}

void join(StartedThread& thread) {
    // Not by the number in the system, which another thread may have once this one has ended.
    if (thread.handle.get_id() == std::this_thread::get_id())
        throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur));
    thread.handle.join();
}

// Inside a catch block.  Deliberate: the address of the tag, not its text.  What reads these lines
// has the mark in front of them, and keeps threads of equal tags apart by it.
void reportFailure(const std::string& tag) {
    TraceLine line("libn::threadFunc", 0);
    line << "m_tag<" << static_cast<const void*>(&tag) << '>';
    try {
        throw;
    } catch (const CEmptyError& e) {
        line << "e.GetErrorDesc()<" << orEmpty(e.GetErrorDesc()) << '>';
    } catch (const std::exception& e) {
        line << "what()<" << orEmpty(e.what()) << '>';
    } catch (...) {
        line << "...";
    }
}

} // namespace

std::thread (*makeThread)(unsigned (*entry)(void* record), void* record) = makeStandardThread;

void threadFunc(Thread& thread) {
    const ThreadData& data = *thread.data;
    try {
        showTag(data.tag);
        thread.onStart();
        while (!data.stopRequested)
            thread.run();
        thread.onFinish();
    } catch (...) {
        try {
            reportFailure(data.tag);
        } catch (...) {
            // There is no memory for a line, and nobody else to tell.
        }
    }
    try {
        devent(-5, "Thread finished.");
    } catch (...) {
        // As above.
    }
}

unsigned Thread::threadEntry(void* record) {
    const std::unique_ptr<EntryRecord> owned(static_cast<EntryRecord*>(record));
    owned->thread->data->thread.id = platform::threadId();
    threadFunc(*owned->thread);
    return 0;
}

Thread::Thread() : data(std::make_unique<ThreadData>()) {}
Thread::~Thread() = default;

void Thread::onStart() {
    util_set_se_translator(seh_translator);
    init_errorlog(nullptr, data->tag.c_str(), nullptr);
    init_eventlog(nullptr, data->tag.c_str(), nullptr);
}
void Thread::onFinish() {}
void Thread::onStopRequest() {}

void Thread::setTag(const char* tag) {
    data->tag = tag;
}

void Thread::start() {
    auto record = std::make_unique<EntryRecord>(EntryRecord{this});
    platform::stayLoaded();
    const platform::SignalsKeptOff keptOff;
    try {
        data->thread.handle = makeThread(threadEntry, record.get());
    } catch (const std::system_error&) {
        throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
    }
    record.release();
}

void Thread::stop() noexcept {
    onStopRequest();
    data->stopRequested = true;
    if (!data->thread.handle.joinable())
        return;
    join(data->thread); // what this raises ends the process
    data->thread.id = 0;
}

} // namespace libn
