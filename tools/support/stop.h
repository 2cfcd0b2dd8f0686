// The wish of the user or the system that a program which runs on comes to its end: Ctrl-C,
// termination, a closed terminal.

#pragma once

#include <chrono>

namespace tool {

// From its construction on such a wish no longer ends the process but is kept here; the former
// conduct returns when the object goes.  A second wish ends the process at once.  One object at a
// time.  Where the system ends the process by itself soon after the wish (a closed console), it
// waits for the object to go, up to five seconds.
class StopWish {
  public:
    StopWish();
    ~StopWish();
    StopWish(const StopWish&) = delete;
    StopWish& operator=(const StopWish&) = delete;

    bool isThere() const;

    // Waits until the wish is there or the time is over, and gives isThere().
    bool waitFor(std::chrono::milliseconds time) const;
};

} // namespace tool
