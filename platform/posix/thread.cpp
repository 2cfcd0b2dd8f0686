// Thread and process on Linux.
//
// Each number is a call of the kernel, so it is asked for once and kept.  A child that fork makes
// has numbers of its own: a hook of fork forgets those of the parent.

#include "platform/thread.h"

#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <unistd.h>
#include <atomic>
#include <cstring>

#include "suspendSignal.h"

namespace platform {

namespace {

// 0: not known.
constinit std::atomic<std::uint32_t> process{0};
__attribute__((tls_model("initial-exec"))) thread_local constinit std::uint32_t thread = 0;

// In the child the thread that forked is the only one.
void forgetNumbers() {
    process.store(0, std::memory_order_relaxed);
    thread = 0;
}

// Nothing is kept before the hook is there, nor where it cannot be had.
const bool keeps = ::pthread_atfork(nullptr, nullptr, forgetNumbers) == 0;

} // namespace

std::uint32_t processId() noexcept {
    if (const std::uint32_t known = process.load(std::memory_order_relaxed))
        return known;
    const auto asked = static_cast<std::uint32_t>(::getpid());
    if (keeps)
        process.store(asked, std::memory_order_relaxed);
    return asked;
}

std::uint32_t threadId() noexcept {
    if (thread != 0)
        return thread;
    const auto asked = static_cast<std::uint32_t>(::gettid());
    if (keeps)
        thread = asked;
    return asked;
}

SignalsKeptOff::SignalsKeptOff() noexcept {
    sigset_t kept = {};
    ::sigfillset(&kept);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP})
        ::sigdelset(&kept, fault);
    if (const int stops = suspending::suspendSignal())
        ::sigdelset(&kept, stops);
    sigset_t former = {};
    ::pthread_sigmask(SIG_BLOCK, &kept, &former);
    static_assert(sizeof former <= sizeof m_former);
    std::memcpy(m_former, &former, sizeof former);
}
SignalsKeptOff::~SignalsKeptOff() {
    sigset_t former = {};
    std::memcpy(&former, m_former, sizeof former);
    ::pthread_sigmask(SIG_SETMASK, &former, nullptr);
}

void yieldThread() noexcept {
    ::sched_yield();
}

} // namespace platform
