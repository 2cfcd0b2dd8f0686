// A worker thread that repeats its work until its object is deleted.
//
// On the thread structured exceptions become CSEHError, and its lines carry the tag as their mark.
// What leaves the loop as an exception ends the thread with a line in the event log; the object
// stays as it is until it is deleted.

#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>

#include "libn/Noncopyable.h"

namespace libn {

// The tag of the thread that was started last, at most 19 characters, "MAIN" at first.  Nobody
// reads it but debuggers.
extern char currentThreadTag[20];

// A started thread: what the standard library holds of it, and its number in the system, which the
// thread enters itself.
struct StartedThread {
    std::thread handle;
    std::atomic<std::uint32_t> id{0};
};

struct ThreadData {
    StartedThread thread; // empty until started
    std::atomic<bool> stopRequested{false};
    std::string tag;
};

// The order of the virtual operations is binding for other modules.
class Thread : public Noncopyable {
  public:
    Thread();

    // One cycle of the work; called again and again until the stop is requested.
    virtual void run() = 0;

    // On the new thread, once before the first cycle: installs seh_translator and opens the logs
    // that sarn.ini names, with the tag as the mark.
    virtual void onStart();

    // On the new thread, once behind the last cycle; not where an exception ended the loop.
    virtual void onFinish();

    // First act of the destruction, on the thread that deletes.
    virtual void onStopRequest();

    // A derived class calls stop() first in its own; a thread that still runs here ends the
    // process.
    virtual ~Thread();

    // Before start() alone.
    void setTag(const char* tag);

    // Starts the thread, which takes no signals of the host.  Raises std::system_error
    // (resource_unavailable_try_again) where no thread can be had; once for an object.
    void start();

  protected:
    bool stopRequested() const { return data->stopRequested; }

    // Calls onStopRequest, requests the stop and waits for the end of the present cycle.  From the
    // thread itself, and where the wait fails, the process ends.
    void stop() noexcept;

    std::unique_ptr<ThreadData> data;

  private:
    static unsigned threadEntry(void* record);
    friend void threadFunc(Thread& thread);
};

// Makes a thread of the system that runs entry(record); raises std::system_error.  Tests stand in.
extern std::thread (*makeThread)(unsigned (*entry)(void* record), void* record);

} // namespace libn
