// The one handler of the five fault signals.  It throws nothing itself: it has the kernel return
// into the trampoline, which runs as an ordinary frame of the thread.

#include "faultState.h"

#include <x86intrin.h>

#include "platform/error.h"
#include "platform/startUp.h"

namespace platform {

namespace {

constexpr unsigned long long kAlignmentCheck = 0x40000;

void onFault(int signal, siginfo_t* info, void* context) {
    // Compiled code is not made for the flag that lets misaligned accesses fault.
    __writeeflags(__readeflags() & ~kAlignmentCheck);
    const LastErrorKeeper keeper;
    auto& interrupted = *static_cast<ucontext_t*>(context);
    if (const FaultFrame* refused = faultNobodyTook(interrupted)) {
        siginfo_t original = refused->info;
        restoreFault(*refused, interrupted);
        handOn(original.si_signo, original, interrupted);
        return;
    }
    const ThreadFaults& mine = threadFaults;
    const bool isFault = info->si_code > 0; // else somebody sent the signal
    const bool hasTaker = mine.translator != nullptr || mine.guard != nullptr;
    if (!isFault || !hasTaker || !sendToTrampoline(*info, interrupted))
        handOn(signal, *info, interrupted);
}

struct Installed {
    Installed() {
        // Handlers that are put in front of ours call it, and other threads may be inside it.
        stayLoaded();
        struct sigaction ours = {};
        ours.sa_sigaction = onFault;
        ours.sa_flags = SA_SIGINFO | SA_NODEFER | SA_ONSTACK;
        ::sigemptyset(&ours.sa_mask);
        for (const int signal : kFaultSignals) {
            // Remembered first: another thread may fault while the handler is put in place.
            struct sigaction former = {};
            ::sigaction(signal, nullptr, &former);
            rememberFormer(signal, former);
            ::sigaction(signal, &ours, nullptr);
            m_former[signal] = former;
        }
    }

    // At the end of the process.  Who came later stays.
    ~Installed() {
        for (const int signal : kFaultSignals) {
            struct sigaction now = {};
            ::sigaction(signal, nullptr, &now);
            if (now.sa_sigaction == onFault)
                ::sigaction(signal, &m_former[signal], nullptr);
        }
    }
    Installed(const Installed&) = delete;
    Installed& operator=(const Installed&) = delete;

  private:
    struct sigaction m_former[32] = {};
};

} // namespace

void installHandlers() noexcept {
    static const Installed installed;
}

} // namespace platform
