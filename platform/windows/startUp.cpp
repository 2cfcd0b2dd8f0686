// Keys, sockets, clock and the hold on the library itself on Windows.

#include "platform/startUp.h"

// Before windows.h, which would bring its forerunner in.
#include <winsock2.h>

#include <windows.h>

namespace platform {

ThreadKeys::ThreadKeys() noexcept {
    for (; m_taken < kCount; ++m_taken) {
        m_keys[m_taken] = ::TlsAlloc();
        if (m_keys[m_taken] == TLS_OUT_OF_INDEXES)
            break;
    }
}

ThreadKeys::~ThreadKeys() {
    while (m_taken > 0)
        ::TlsFree(m_keys[--m_taken]);
}

SocketLibrary::SocketLibrary() noexcept {
    WSADATA details = {};
    m_error = static_cast<std::uint32_t>(::WSAStartup(MAKEWORD(2, 0), &details));
    m_version = m_error == 0 ? details.wVersion : WORD{0};
}

SocketLibrary::~SocketLibrary() {
    if (m_error == 0)
        ::WSACleanup();
}

std::int64_t monotonicNanoseconds() noexcept {
    LARGE_INTEGER count = {};
    LARGE_INTEGER frequency = {};
    ::QueryPerformanceCounter(&count);
    ::QueryPerformanceFrequency(&frequency);
    constexpr std::int64_t kSecond = 1'000'000'000;
    const std::int64_t seconds = count.QuadPart / frequency.QuadPart;
    return seconds * kSecond + count.QuadPart % frequency.QuadPart * kSecond / frequency.QuadPart;
}

void stayLoaded() noexcept {
    HMODULE self = nullptr;
    ::GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_PIN | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                         reinterpret_cast<LPCSTR>(&stayLoaded), &self);
}

} // namespace platform
