// The record of each thread, the handler of the signal, and telling a thread to look.

#include "suspendSignal.h"

#include <fcntl.h>
#include <linux/futex.h>
#include <sched.h>
#include <signal.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/startUp.h"

namespace platform::suspending {

namespace {

// Initial-exec: static storage at one distance from the thread's pthread_t in each thread.
__attribute__((tls_model("initial-exec"))) thread_local constinit ThreadRecord ownRecord = {};

// A thread that was told to stop while another forked is told so in the parent alone.
void forgetWishes() {
    ownRecord.control.store(0, std::memory_order_relaxed);
}
const bool forgets = ::pthread_atfork(nullptr, nullptr, forgetWishes) == 0;

constexpr long kForEver = -1;
constexpr int kSignalMilliseconds = 300;
constexpr int kTracerMilliseconds = 1000;

// Stays while the record wants the thread to.  Everything here may be done in a signal handler.
void obey(int signal, siginfo_t*, void* context) {
    const int keptError = errno;
    ThreadRecord& mine = ownRecord;
    auto* stoppedAt = static_cast<ucontext_t*>(context);
    mine.context.store(stoppedAt, std::memory_order_relaxed);
    std::uint32_t seen = mine.control.load(std::memory_order_acquire);
    for (;;) {
        if ((seen & kEnd) != 0)
            endHere();
        if ((seen & kCountBits) == 0) {
            if (mine.control.compare_exchange_weak(seen, 0))
                break;
        } else if ((seen & kStopped) == 0) {
            if (mine.control.compare_exchange_weak(seen, seen | kStopped)) {
                seen |= kStopped;
                futexWake(mine.control);
            }
        } else {
            futexWait(mine.control, seen, kForEver);
            seen = mine.control.load(std::memory_order_acquire);
        }
    }
    if ((seen & kUnblocked) != 0) // the mask that the thread goes on with
        ::sigaddset(&stoppedAt->uc_sigmask, signal);
    errno = keptError;
}

bool isOurs(const struct sigaction& action) noexcept {
    return (action.sa_flags & SA_SIGINFO) != 0 && action.sa_sigaction == obey;
}

bool isFree(const struct sigaction& action) noexcept {
    return (action.sa_flags & SA_SIGINFO) == 0 && action.sa_handler == SIG_DFL;
}

// The first that is ours or free, from the end; 0: none.
int findSignal(bool& installed) noexcept {
    for (int signal = SIGRTMAX - 3; signal >= SIGRTMIN; --signal) {
        struct sigaction action = {};
        if (::sigaction(signal, nullptr, &action) != 0)
            continue;
        installed = isOurs(action);
        if (installed || isFree(action))
            return signal;
    }
    return 0;
}

// Reads a small file of the kernel about the thread; empty where it cannot be read.
void readThreadFile(pid_t thread, const char* file, char* out, std::size_t size) noexcept {
    out[0] = '\0';
    char path[64];
    std::snprintf(path, sizeof path, "/proc/self/task/%d/%s", static_cast<int>(thread), file);
    const int handle = ::open(path, O_RDONLY | O_CLOEXEC);
    if (handle < 0)
        return;
    const ssize_t length = ::read(handle, out, size - 1);
    out[length > 0 ? length : 0] = '\0';
    ::close(handle);
}

// Whether a signal sent now would wait, or be the answer to a sigwait of the host.
bool wouldMiss(pid_t thread, int signal) noexcept {
    char text[4096];
    readThreadFile(thread, "status", text, sizeof text);
    if (const char* mask = std::strstr(text, "SigBlk:")) {
        const unsigned long long blocked = std::strtoull(mask + 7, nullptr, 16);
        if ((blocked >> (signal - 1) & 1) != 0)
            return true;
    }
    readThreadFile(thread, "syscall", text, sizeof text);
    char* end = text;
    const long call = std::strtol(text, &end, 10);
    return end != text && call == SYS_rt_sigtimedwait;
}

std::int64_t millisecondsNow() noexcept {
    timespec now = {};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000LL + now.tv_nsec / 1'000'000;
}

bool waitUntil(bool (*done)(pthread_t), pthread_t thread, int milliseconds) noexcept {
    ThreadRecord& record = recordOf(thread);
    const std::int64_t end = millisecondsNow() + milliseconds;
    for (;;) {
        const std::uint32_t seen = record.control.load(std::memory_order_acquire);
        if (done(thread))
            return true;
        if (systemIdOf(thread) == 0) {
            errno = ESRCH;
            return false;
        }
        if (millisecondsNow() >= end) {
            errno = ETIMEDOUT;
            return false;
        }
        futexWait(record.control, seen, 1);
    }
}

} // namespace

void endHere() noexcept {
    // The next thread gets this one's descriptor as it is, and would find these values in it.
    for (pthread_key_t key = 0; key < PTHREAD_KEYS_MAX; ++key)
        ::pthread_setspecific(key, nullptr);
    for (;;)
        ::syscall(SYS_exit, 0);
}

ThreadRecord& recordOf(pthread_t thread) noexcept {
    const auto distance = reinterpret_cast<std::uintptr_t>(&ownRecord) -
                          static_cast<std::uintptr_t>(::pthread_self());
    return *reinterpret_cast<ThreadRecord*>(static_cast<std::uintptr_t>(thread) + distance);
}

pid_t systemIdOf(pthread_t thread) noexcept {
    clockid_t clock = 0;
    if (::pthread_getcpuclockid(thread, &clock) != 0)
        return 0;
    return static_cast<pid_t>(~(clock >> 3)); // the kernel's number of a thread's clock
}

int suspendSignal() noexcept {
    bool installed = false;
    return findSignal(installed);
}

int readySignal() noexcept {
    bool installed = false;
    const int signal = findSignal(installed);
    if (signal == 0) {
        errno = EAGAIN;
        return 0;
    }
    if (!installed) {
        stayLoaded();
        struct sigaction action = {};
        action.sa_sigaction = obey;
        // On the thread's other stack if it has one: its own may be used up.
        action.sa_flags = SA_SIGINFO | SA_RESTART | SA_ONSTACK;
        ::sigfillset(&action.sa_mask);
        if (::sigaction(signal, &action, nullptr) != 0)
            return 0;
    }
    return signal;
}

bool tell(pthread_t thread, int signal, bool (*done)(pthread_t thread)) noexcept {
    if (done(thread))
        return true;
    const pid_t id = systemIdOf(thread);
    if (id == 0) {
        errno = ESRCH;
        return false;
    }
    const bool stands = (recordOf(thread).control.load() & kStopped) != 0;
    if (stands && waitUntil(done, thread, kSignalMilliseconds))
        return true;
    if (!wouldMiss(id, signal) && ::syscall(SYS_tgkill, ::getpid(), id, signal) == 0 &&
        waitUntil(done, thread, kSignalMilliseconds))
        return true;
    const int failure = sendAsTracer(id, signal, recordOf(thread));
    if (waitUntil(done, thread, failure == 0 ? kTracerMilliseconds : 0))
        return true;
    if (failure != 0 && errno == ETIMEDOUT)
        errno = failure;
    return false;
}

void futexWait(std::atomic<std::uint32_t>& word, std::uint32_t seen, long milliseconds) noexcept {
    timespec limit = {milliseconds / 1000, milliseconds % 1000 * 1'000'000};
    ::syscall(SYS_futex, &word, FUTEX_WAIT_PRIVATE, seen, milliseconds < 0 ? nullptr : &limit,
              nullptr, 0);
}

void futexWake(std::atomic<std::uint32_t>& word) noexcept {
    ::syscall(SYS_futex, &word, FUTEX_WAKE_PRIVATE, INT_MAX, nullptr, nullptr, 0);
}

} // namespace platform::suspending
