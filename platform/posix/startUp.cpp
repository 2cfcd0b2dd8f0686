// Keys, clock and the hold on the library itself on POSIX systems.

#include "platform/startUp.h"

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <ctime>

namespace platform {

static_assert(sizeof(pthread_key_t) == sizeof(std::uint32_t));

ThreadKeys::ThreadKeys() noexcept {
    while (m_taken < kCount && ::pthread_key_create(&m_keys[m_taken], nullptr) == 0)
        ++m_taken;
}

ThreadKeys::~ThreadKeys() {
    while (m_taken > 0)
        ::pthread_key_delete(m_keys[--m_taken]);
}

SocketLibrary::SocketLibrary() noexcept = default;
SocketLibrary::~SocketLibrary() = default;

std::int64_t monotonicNanoseconds() noexcept {
    timespec now = {};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * std::int64_t{1'000'000'000} + now.tv_nsec;
}

void stayLoaded() noexcept {
    static constinit std::atomic<bool> held{false};
    Dl_info module = {};
    if (held.exchange(true) || ::dladdr(reinterpret_cast<void*>(&stayLoaded), &module) == 0)
        return;
    // A program that holds these objects itself is not found under its name; it stays anyway.
    ::dlopen(module.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
}

} // namespace platform
