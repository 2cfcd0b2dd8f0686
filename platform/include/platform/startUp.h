// What the library takes from the system while it loads and gives back when it goes.

#pragma once

#include <cstddef>
#include <cstdint>

namespace platform {

// Keys for values of threads (TlsAlloc; on Linux pthread_key_create).  None of the family's
// components that share the process may find fewer than it counts on, so they are taken at once.
class ThreadKeys {
  public:
    static constexpr std::size_t kCount = 3;

    ThreadKeys() noexcept;
    ~ThreadKeys();
    ThreadKeys(const ThreadKeys&) = delete;
    ThreadKeys& operator=(const ThreadKeys&) = delete;

    // How many the system gave.
    std::size_t taken() const noexcept { return m_taken; }

  private:
    std::size_t m_taken = 0;
    std::uint32_t m_keys[kCount] = {};
};

// The socket library of Windows, version 2.0, which counts who uses it (WSAStartup, WSACleanup).
// Nothing on Linux.
class SocketLibrary {
  public:
    SocketLibrary() noexcept;
    ~SocketLibrary();
    SocketLibrary(const SocketLibrary&) = delete;
    SocketLibrary& operator=(const SocketLibrary&) = delete;

    // 0, or the reason why the library is not there.
    std::uint32_t error() const noexcept { return m_error; }
    // The version that is spoken, major in the low byte; 0 where there is no library.
    std::uint16_t version() const noexcept { return m_version; }

  private:
    std::uint32_t m_error = 0;
    std::uint16_t m_version = 0;
};

// Nanoseconds of a clock that only rises, from a start of its own (QueryPerformanceCounter).
std::int64_t monotonicNanoseconds() noexcept;

// Keeps the library in the process from here on, however often its host unloads it: threads of its
// own and handlers of faults run in its code.
void stayLoaded() noexcept;

} // namespace platform
