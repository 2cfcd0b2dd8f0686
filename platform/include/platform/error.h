// The system's last error of the calling thread, and the texts behind its numbers.
//
// Windows: GetLastError, SetLastError, WSAGetLastError, FormatMessageA.  Linux: errno serves for
// all of them.

#pragma once

#include <cstddef>
#include <cstdint>

namespace platform {

std::uint32_t lastError() noexcept;
void setLastError(std::uint32_t code) noexcept;
std::uint32_t lastSocketError() noexcept;

// Writes the text of std::system_category for `code`, cut to `size` with its terminator, and
// "unknown error" where the system has none.  Takes nothing from the heap.
void systemErrorText(std::uint32_t code, char* out, std::size_t size) noexcept;

// Restores the last error that it found.
class LastErrorKeeper {
  public:
    LastErrorKeeper() noexcept : m_code(lastError()) {}
    ~LastErrorKeeper() { setLastError(m_code); }
    LastErrorKeeper(const LastErrorKeeper&) = delete;
    LastErrorKeeper& operator=(const LastErrorKeeper&) = delete;

  private:
    std::uint32_t m_code;
};

} // namespace platform
