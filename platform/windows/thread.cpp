// Thread and process on Windows.

#include "platform/thread.h"

#include <windows.h>

namespace platform {

std::uint32_t processId() noexcept {
    return ::GetCurrentProcessId();
}
std::uint32_t threadId() noexcept {
    return ::GetCurrentThreadId();
}
SignalsKeptOff::SignalsKeptOff() noexcept : m_former{} {}
SignalsKeptOff::~SignalsKeptOff() {}

void yieldThread() noexcept {
    ::SwitchToThread();
}

} // namespace platform
