// What each thread of the process carries for the family's waits on several events.
//
// This library waits on none; components of the family that do find the data of a thread here.

#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>

namespace velt {

class CMultiEvent {
  public:
    struct SWaiterData {
        std::condition_variable condition;
        std::mutex lock;
    };

    // That of the calling thread: made at the thread's start and released at its end, unless
    // somebody holds it.  On Linux a thread starts with its first use of the library.  Null where
    // there was no memory for it.
    static std::shared_ptr<SWaiterData> waiterOfThread();
};

} // namespace velt
