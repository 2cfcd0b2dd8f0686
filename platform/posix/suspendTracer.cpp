// A tracer for one moment: a process that shares this one's memory takes the signal off the blocked
// ones of a thread and sends it while the thread is stopped, so that the thread takes it before
// anything else.  It allocates nothing and calls nothing of the host.

#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <cerrno>
#include <cstdint>

#include "suspendSignal.h"

namespace platform::suspending {

namespace {

constexpr std::size_t kStackSize = 65536;
constexpr int kStopMilliseconds = 1000;

struct Job {
    pid_t process;
    pid_t thread;
    int signal;
    ThreadRecord* record;
    std::atomic<std::uint32_t> go;
    int failure;
};

// The status of the stop, or 0 with the reason in errno.
__attribute__((no_sanitize("address", "thread", "undefined"))) int awaitStop(pid_t thread) {
    for (int tries = 0; tries < kStopMilliseconds; ++tries) {
        int status = 0;
        const pid_t found = ::waitpid(thread, &status, __WALL | WNOHANG);
        if (found < 0)
            return 0;
        if (found == thread && WIFSTOPPED(status))
            return status;
        if (found == thread) {
            errno = ESRCH;
            return 0;
        }
        const timespec pause = {0, tries == 0 ? 50'000 : 1'000'000};
        ::syscall(SYS_nanosleep, &pause, nullptr);
    }
    errno = ETIMEDOUT;
    return 0;
}

__attribute__((no_sanitize("address", "thread", "undefined"))) int trace(const Job& job) {
    if (::ptrace(PTRACE_SEIZE, job.thread, nullptr, nullptr) != 0)
        return errno;
    // Every return from here on lets the thread go on: its tracer ends.
    if (::ptrace(PTRACE_INTERRUPT, job.thread, nullptr, nullptr) != 0)
        return errno;
    const int status = awaitStop(job.thread);
    if (status == 0)
        return errno;
    std::uint64_t mask = 0;
    if (::ptrace(PTRACE_GETSIGMASK, job.thread, sizeof mask, &mask) != 0)
        return errno;
    const std::uint64_t bit = std::uint64_t{1} << (job.signal - 1);
    if ((mask & bit) != 0) {
        job.record->control.fetch_or(kUnblocked);
        mask &= ~bit;
        if (::ptrace(PTRACE_SETSIGMASK, job.thread, sizeof mask, &mask) != 0)
            return errno;
    }
    const int failure = ::syscall(SYS_tgkill, job.process, job.thread, job.signal) == 0 ? 0 : errno;
    // A signal that the thread was just taking is given back to it.
    const bool ownStop = status >> 16 == PTRACE_EVENT_STOP;
    const long taken = ownStop ? 0 : WSTOPSIG(status);
    ::ptrace(PTRACE_DETACH, job.thread, nullptr, reinterpret_cast<void*>(taken));
    return failure;
}

__attribute__((no_sanitize("address", "thread", "undefined"))) int runJob(void* argument) {
    auto& job = *static_cast<Job*>(argument);
    while (job.go.load() == 0)
        futexWait(job.go, 0, 10);
    job.failure = trace(job);
    return 0;
}

// A tracer must be a parent, or named by the traced process where the system's policy asks for it.
int runTracer(Job& job, unsigned char* stack, bool named) noexcept {
    const pid_t tracer = ::clone(runJob, stack + kStackSize,
                                 CLONE_VM | CLONE_FS | CLONE_FILES | CLONE_UNTRACED, &job);
    if (tracer < 0)
        return errno;
    if (named)
        ::prctl(PR_SET_PTRACER, tracer, 0, 0, 0);
    job.go.store(1);
    futexWake(job.go);
    int status = 0;
    while (::waitpid(tracer, &status, __WALL) < 0 && errno == EINTR) {
    }
    if (named)
        ::prctl(PR_SET_PTRACER, 0, 0, 0, 0);
    return job.failure;
}

} // namespace

int sendAsTracer(pid_t thread, int signal, ThreadRecord& record) noexcept {
    void* stack =
        ::mmap(nullptr, kStackSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (stack == MAP_FAILED)
        return errno;
    // The tracer inherits this: no handler of the host's runs on it.
    sigset_t all = {};
    sigset_t former = {};
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_BLOCK, &all, &former);
    int failure = EPERM;
    for (const bool named : {false, true}) {
        if (failure != EPERM)
            break;
        Job job = {::getpid(), thread, signal, &record, 0, EPERM};
        failure = runTracer(job, static_cast<unsigned char*>(stack), named);
    }
    ::pthread_sigmask(SIG_SETMASK, &former, nullptr);
    ::munmap(stack, kStackSize);
    return failure;
}

} // namespace platform::suspending
