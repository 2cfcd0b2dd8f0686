// Stops all threads of the process by a tracer and has it write the core.
//
// The tracer is a process of its own that shares memory and descriptors with this one, so it can
// stop each thread, whatever signals that blocks, and writes what it sees as its own.  It uses the
// thread-local storage of the thread that made it, which waits for it meanwhile.

#include <dirent.h>
#include <elf.h>
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <ctime>

#include "coreWork.h"

// clone of the C library under the name that thread checkers do not replace: what they put in its
// place is made for children with a memory of their own.
extern "C" int __clone(int (*start)(void*), void* stack, int flags, void* argument, ...);

namespace platform::core {

namespace {

// Threads that appear while others are stopped are found by looking again.
constexpr int kRounds = 8;
constexpr int kStopsLooked = 2000; // times for one thread, most of them 1 ms apart
constexpr int kAllowance = 2000;   // milliseconds

// A fault of the tracer ends it alone, before a handler of the process could take it for a fault
// of the waiting thread.
void endTracer(int) {
    ::syscall(SYS_exit, 1);
}

void endByFaults() {
    struct sigaction action = {};
    action.sa_handler = endTracer;
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP})
        ::sigaction(fault, &action, nullptr);
}

void pauseShortly() {
    const timespec pause = {0, 1'000'000};
    ::nanosleep(&pause, nullptr);
}

// Waits for the stop of a thread that was told to; false if it never comes, or the thread ended.
bool waitForStop(Thread& thread) {
    for (int look = 0; look < kStopsLooked; ++look) {
        int status = 0;
        const pid_t found = ::waitpid(thread.id, &status, __WALL | WNOHANG);
        if (found == thread.id) {
            if (!WIFSTOPPED(status))
                return false;
            // A stop at the delivery of a signal: it is delivered when the thread goes on.
            if (status >> 16 == 0)
                thread.heldSignal = WSTOPSIG(status);
            return true;
        }
        if (found < 0 && errno != EINTR)
            return false;
        if (look < kStopsLooked / 2)
            ::sched_yield();
        else
            pauseShortly();
    }
    return false;
}

void readRegisters(Thread& thread) {
    iovec general = {&thread.registers, sizeof thread.registers};
    thread.stopped = ::ptrace(PTRACE_GETREGSET, thread.id, NT_PRSTATUS, &general) == 0;
    iovec floating = {&thread.floating, sizeof thread.floating};
    ::ptrace(PTRACE_GETREGSET, thread.id, NT_PRFPREG, &floating);
}

bool isKnown(const Work& work, pid_t id) {
    for (std::size_t i = 0; i < work.threadCount; ++i)
        if (work.threads[i].id == id)
            return true;
    return false;
}

// False where tracing is not allowed.
bool stopNewThreads(Work& work, bool& anyNew) {
    anyNew = false;
    const std::size_t count = listTasks(work);
    for (std::size_t i = 0; i < count; ++i) {
        const pid_t id = work.tasks[i];
        if (work.threadCount == kMostThreads || isKnown(work, id))
            continue;
        if (::ptrace(PTRACE_SEIZE, id, nullptr, nullptr) != 0) {
            if (errno == EPERM && work.threadCount == 0)
                return false;
            continue; // it ended
        }
        ::ptrace(PTRACE_INTERRUPT, id, nullptr, nullptr);
        Thread& thread = work.threads[work.threadCount];
        thread = {};
        thread.id = id;
        if (!waitForStop(thread))
            continue;
        readRegisters(thread);
        ++work.threadCount;
        anyNew = true;
    }
    return true;
}

int trace(void* argument) {
    Work& work = *static_cast<Work*>(argument);
    endByFaults();
    waitWhile(work.allowed, 0, kAllowance);
    // With the thread that waits for it gone, the process is gone.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    bool anyNew = true;
    for (int round = 0; anyNew && round < kRounds; ++round)
        if (!stopNewThreads(work, anyNew))
            return 1;
    if (work.threadCount == 0)
        return 1;
    work.finished = writeStopped(work) ? 1 : 0;
    for (std::size_t i = 0; i < work.threadCount; ++i)
        ::ptrace(PTRACE_DETACH, work.threads[i].id, nullptr,
                 static_cast<std::intptr_t>(work.threads[i].heldSignal));
    return 0;
}

// While an object lives, the process may be traced by the tracer, also where it denies that to
// others.
class Traceable {
  public:
    Traceable() : m_denied(::prctl(PR_GET_DUMPABLE) == 0) {
        if (m_denied)
            ::prctl(PR_SET_DUMPABLE, 1);
    }
    ~Traceable() {
        ::prctl(PR_SET_PTRACER, 0);
        if (m_denied)
            ::prctl(PR_SET_DUMPABLE, 0);
    }
    Traceable(const Traceable&) = delete;
    Traceable& operator=(const Traceable&) = delete;

    void allow(pid_t tracer) { ::prctl(PR_SET_PTRACER, tracer); }

  private:
    bool m_denied;
};

} // namespace

std::size_t listTasks(Work& work) noexcept {
    char path[64];
    std::snprintf(path, sizeof path, "/proc/%d/task", work.process);
    const int folder = ::open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0)
        return 0;
    alignas(dirent64) char entries[4096];
    std::size_t count = 0;
    for (;;) {
        const long size = ::syscall(SYS_getdents64, folder, entries, sizeof entries);
        if (size <= 0)
            break;
        for (long at = 0; at < size;) {
            const auto* entry = reinterpret_cast<const dirent64*>(entries + at);
            pid_t id = 0;
            for (const char* digit = entry->d_name; *digit >= '0' && *digit <= '9'; ++digit)
                id = id * 10 + (*digit - '0');
            if (id != 0 && count < kMostThreads)
                work.tasks[count++] = id;
            at += entry->d_reclen;
        }
    }
    ::close(folder);
    return count;
}

bool writeByTracer(Work& work) noexcept {
    Traceable traceable;
    // Without a signal at its end nobody but this function hears of it.
    constexpr int kShared = CLONE_VM | CLONE_FS | CLONE_FILES | CLONE_UNTRACED;
    const pid_t tracer = ::__clone(trace, work.stack + sizeof work.stack, kShared, &work);
    if (tracer < 0)
        return false;
    traceable.allow(tracer);
    work.allowed = 1;
    wakeAll(work.allowed);
    int status = 0;
    while (::waitpid(tracer, &status, __WALL) < 0 && errno == EINTR) {
    }
    return work.finished >= 0;
}

} // namespace platform::core
