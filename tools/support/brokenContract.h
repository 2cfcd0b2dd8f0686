// A tidy end where a library meets arguments that break the contract of the C library, which would
// end the process with a crash.

#pragma once

namespace tool {

// While the object lives, such a call ends the process with `code` and the text on standard error,
// without running what ends otherwise run.  `text` must outlive the object.  One at a time.
class BrokenContract {
  public:
    BrokenContract(const char* text, int code);
    ~BrokenContract();
    BrokenContract(const BrokenContract&) = delete;
    BrokenContract& operator=(const BrokenContract&) = delete;
};

} // namespace tool
