// Threads on Linux, by their pthread_t.  How one is stopped and ended stands in suspendSignal.h.

#include "platform/threadControl.h"

#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <cerrno>
#include <ctime>

#include "../src/threadSystem.h"
#include "runTimeLocks.h"
#include "suspendSignal.h"
#include "systemTables.h"

namespace platform {

using namespace suspending;

namespace {

pthread_t fromHandle(ThreadHandle thread) noexcept {
    return reinterpret_cast<pthread_t>(thread);
}

// 0 with the reason in errno: no thread, or one that has ended.
pid_t runningId(ThreadHandle thread) noexcept {
    const pid_t id = thread != nullptr ? systemIdOf(fromHandle(thread)) : 0;
    if (id == 0)
        errno = ESRCH;
    return id;
}

bool hasStopped(pthread_t thread) noexcept {
    return (recordOf(thread).control.load(std::memory_order_acquire) & kStopped) != 0;
}

bool hasEnded(pthread_t thread) noexcept {
    return systemIdOf(thread) == 0;
}

bool countUp(ThreadRecord& record, std::uint32_t& former) noexcept {
    std::uint32_t seen = record.control.load();
    do {
        if ((seen & kCountBits) == kCountBits) {
            errno = EAGAIN;
            return false;
        }
    } while (!record.control.compare_exchange_weak(seen, seen + 1));
    former = seen & kCountBits;
    return true;
}

// False: the thread has stopped after all.
bool takeBack(ThreadRecord& record) noexcept {
    std::uint32_t seen = record.control.load();
    do {
        if ((seen & kStopped) != 0)
            return false;
    } while (!record.control.compare_exchange_weak(seen, seen - 1));
    return true;
}

// Returns when another thread has resumed this one.
void stopHere(int signal) noexcept {
    sigset_t only = {};
    sigset_t former = {};
    ::sigemptyset(&only);
    ::sigaddset(&only, signal);
    ::pthread_sigmask(SIG_UNBLOCK, &only, &former);
    ::syscall(SYS_tgkill, ::getpid(), ::gettid(), signal);
    ::pthread_sigmask(SIG_SETMASK, &former, nullptr);
}

// The former count; the thread stands still from here on.
std::uint32_t stop(ThreadHandle thread) {
    const int signal = runningId(thread) != 0 ? readySignal() : 0;
    if (signal == 0)
        return kSuspendFailed;
    ThreadRecord& record = recordOf(fromHandle(thread));
    std::uint32_t former = 0;
    if (!countUp(record, former))
        return kSuspendFailed;
    if (thread == currentThread()) {
        stopHere(signal);
        return former;
    }
    if (tell(fromHandle(thread), signal, hasStopped))
        return former;
    const int reason = errno;
    if (!takeBack(record))
        return former;
    errno = reason;
    return kSuspendFailed;
}

} // namespace

ThreadHandle currentThread() noexcept {
    return reinterpret_cast<ThreadHandle>(::pthread_self());
}

namespace system {

std::uint32_t threadIdOf(ThreadHandle thread) {
    return static_cast<std::uint32_t>(runningId(thread));
}

// A thread that ended by itself gives 0: its result belongs to who joins it.
bool exitCodeOf(ThreadHandle thread, std::uint32_t* code) {
    if (thread == nullptr) {
        errno = ESRCH;
        return false;
    }
    const ThreadRecord& record = recordOf(fromHandle(thread));
    if (!hasEnded(fromHandle(thread)))
        *code = kStillActive;
    else
        *code = (record.control.load() & kEnd) != 0 ? record.exitCode.load() : 0;
    return true;
}

// A thread that stands inside the heap's or the loader's functions is let out of them: whoever
// stops it goes on to allocate and to unwind.
std::uint32_t suspendThread(ThreadHandle thread) {
    constexpr int kTries = 500;
    constexpr timespec kPause = {0, 100'000};
    for (int left = kTries;; --left) {
        const std::uint32_t former = stop(thread);
        // The context of a thread that was stopped before, or that runs on, is not looked at.
        if (former != 0 || left == 0 || thread == currentThread() ||
            !hasStopped(fromHandle(thread)) ||
            !mayHoldRunTimeLock(*recordOf(fromHandle(thread)).context.load(),
                                reinterpret_cast<std::uintptr_t>(thread)))
            return former;
        resumeThread(thread);
        ::nanosleep(&kPause, nullptr);
    }
}

std::uint32_t resumeThread(ThreadHandle thread) {
    if (runningId(thread) == 0)
        return kSuspendFailed;
    ThreadRecord& record = recordOf(fromHandle(thread));
    std::uint32_t seen = record.control.load();
    do {
        if ((seen & kCountBits) == 0)
            return 0;
    } while (!record.control.compare_exchange_weak(seen, seen - 1));
    futexWake(record.control);
    return seen & kCountBits;
}

// The calling thread's own is that of the caller's frame.
__attribute__((noinline, optimize("no-omit-frame-pointer"))) bool contextOf(ThreadHandle thread,
                                                                            std::uint32_t,
                                                                            ThreadContext* out) {
    if (runningId(thread) == 0)
        return false;
    if (thread == currentThread()) {
        captureContext(*out);
        auto* frame = static_cast<std::uintptr_t*>(__builtin_frame_address(0));
        auto* registers = reinterpret_cast<ucontext_t*>(out)->uc_mcontext.gregs;
        registers[REG_RBP] = static_cast<greg_t>(frame[0]);
        registers[REG_RIP] = static_cast<greg_t>(frame[1]);
        registers[REG_RSP] = static_cast<greg_t>(reinterpret_cast<std::uintptr_t>(frame + 2));
        return true;
    }
    if (!hasStopped(fromHandle(thread))) {
        errno = EBUSY; // it runs on, and its state with it
        return false;
    }
    copyContext(*out, recordOf(fromHandle(thread)).context.load());
    return true;
}

std::int32_t terminateThread(ThreadHandle thread, std::uint32_t exitCode) {
    const int signal = runningId(thread) != 0 ? readySignal() : 0;
    if (signal == 0)
        return 0;
    ThreadRecord& record = recordOf(fromHandle(thread));
    record.exitCode.store(exitCode);
    record.control.fetch_or(kEnd);
    if (thread == currentThread())
        endHere();
    futexWake(record.control);
    if (tell(fromHandle(thread), signal, hasEnded) || hasEnded(fromHandle(thread)))
        return 1;
    record.control.fetch_and(~kEnd);
    return 0;
}

// Releases the thread, or has it released when it ends.
bool closeThread(ThreadHandle thread) {
    if (thread == nullptr) {
        errno = EINVAL;
        return false;
    }
    // A thread that was ended from outside is not released by a detach.
    const int failure = hasEnded(fromHandle(thread)) ? ::pthread_join(fromHandle(thread), nullptr)
                                                     : ::pthread_detach(fromHandle(thread));
    errno = failure != 0 ? failure : errno;
    return failure == 0;
}

} // namespace system

void* findThreadControl(const char* name) {
    const SystemFunction functions[] = {{"GetThreadId", addressOf(system::threadIdOf)}};
    return findFunction(functions, name);
}

} // namespace platform
