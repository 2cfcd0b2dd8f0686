// The per-thread state of raising and logging.

#pragma once

#include <cstdint>
#include <memory>

#include "platform/threadBlock.h"

struct EVENTS; // an open log, see the layer of the log files

// Lives in the thread's block of the platform: all zero at the thread's start, gone at its end.
// Nobody constructs it; all zero is an empty shared pointer too.
struct ThreadLogState {
    static constexpr int kPlaceFileLimit = 300;
    static constexpr int kBannerLimit = 256;
    static constexpr int kAppNameLimit = 300;

    char* abuf;                            // the line buffer, from getabuf()
    char* mark;                            // the thread's mark, from getsmark()
    char* aptr;                            // where the line goes on, in abuf
    std::shared_ptr<EVENTS> netEventsFile; // the thread's net log
    std::shared_ptr<EVENTS> errorsFile;    // its error log
    std::shared_ptr<EVENTS> eventsFile;    // its event log
    std::int32_t placeLine;                // last line given to place()
    char placeFile[kPlaceFileLimit + 1];   // last file given to place(), as it was given
    const char* bannerPtr;                 // the banner to print if not null; the caller's
    char banner[kBannerLimit + 1];         // the banner otherwise
    char appName[kAppNameLimit + 1];       // the path of the program, as error lines have it
    bool reportsLogger;                    // while a line about a failed hand-over is written
};

static_assert(sizeof(ThreadLogState) <= platform::kThreadBlockSize);

// The calling thread's state.  Leaves the last error as it was.
inline ThreadLogState& threadLogState() noexcept {
    return *static_cast<ThreadLogState*>(platform::threadBlock());
}
