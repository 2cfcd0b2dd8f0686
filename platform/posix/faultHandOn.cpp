// What happens to a fault signal that is none of ours: it reaches the handler that was there before
// us, or the default action, as if we were not there.

#include "faultState.h"

#include <sys/syscall.h>
#include <unistd.h>
#include <iterator>

namespace platform {

namespace {

struct sigaction formerActions[std::size(kFaultSignals)];

struct sigaction& formerOf(int signal) noexcept {
    std::size_t i = 0;
    while (i + 1 < std::size(kFaultSignals) && kFaultSignals[i] != signal)
        ++i;
    return formerActions[i];
}

void callFormer(const struct sigaction& former, int signal, siginfo_t& info, ucontext_t& context) {
    sigset_t blocked = former.sa_mask;
    if ((former.sa_flags & SA_NODEFER) == 0)
        ::sigaddset(&blocked, signal);
    sigset_t saved = {};
    ::pthread_sigmask(SIG_BLOCK, &blocked, &saved);
    if ((former.sa_flags & SA_SIGINFO) != 0)
        former.sa_sigaction(signal, &info, &context);
    else
        former.sa_handler(signal);
    ::pthread_sigmask(SIG_SETMASK, &saved, nullptr);
}

// Most faults happen again when the handler returns; a breakpoint or a signal that was sent must be
// sent anew, and waits until the frame that it interrupted is back.
void takeDefault(int signal, siginfo_t& info) {
    struct sigaction usual = {};
    usual.sa_handler = SIG_DFL;
    ::sigaction(signal, &usual, nullptr);
    if (info.si_code > 0 && signal != SIGTRAP)
        return;
    sigset_t held = {};
    ::sigemptyset(&held);
    ::sigaddset(&held, signal);
    ::pthread_sigmask(SIG_BLOCK, &held, nullptr);
    if (::syscall(SYS_rt_tgsigqueueinfo, ::getpid(), ::gettid(), signal, &info) != 0)
        ::syscall(SYS_tgkill, ::getpid(), ::gettid(), signal);
}

} // namespace

void rememberFormer(int signal, const struct sigaction& former) noexcept {
    formerOf(signal) = former;
}

void handOn(int signal, siginfo_t& info, ucontext_t& context) noexcept {
    const struct sigaction& former = formerOf(signal);
    const bool handled = (former.sa_flags & SA_SIGINFO) != 0 ||
                         (former.sa_handler != SIG_DFL && former.sa_handler != SIG_IGN);
    if (handled)
        callFormer(former, signal, info, context);
    else if (former.sa_handler != SIG_IGN || info.si_code > 0) // faults cannot be ignored
        takeDefault(signal, info);
}

} // namespace platform
