// The calling thread and its process as numbers, and giving way to other threads.

#pragma once

#include <cstdint>

namespace platform {

// Identifiers of the system (GetCurrentProcessId, GetCurrentThreadId).  A child process that fork
// makes has its own; one made without the hooks of fork
// (_Fork, a bare call of the kernel) is told those of its parent.
std::uint32_t processId() noexcept;
std::uint32_t threadId() noexcept;

// While an object lives, the calling thread, and those that it starts, take no signal of the
// process but those of faults and the one that suspends threads (threadControl.h): a library's own
// thread must not take what the host waits for.
// Nothing on Windows.
class SignalsKeptOff {
  public:
    SignalsKeptOff() noexcept;
    ~SignalsKeptOff();
    SignalsKeptOff(const SignalsKeptOff&) = delete;
    SignalsKeptOff& operator=(const SignalsKeptOff&) = delete;

  private:
    alignas(8) unsigned char m_former[128]; // the former set of blocked signals
};

// Lets another thread run (SwitchToThread).
void yieldThread() noexcept;

} // namespace platform
