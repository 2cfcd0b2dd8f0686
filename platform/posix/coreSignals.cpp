// Stops all threads of the process by a signal of ours, where no tracer may do it.
//
// The handler keeps its thread until the core is written.  A thread that blocks the signal goes on
// running; the kernel tells its stack and instruction pointer where it waits.  It may take the
// signal much later, when the dump is long done: the handler and its table stay for good then, and
// let the thread go on at once.

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "coreWork.h"

namespace platform::core {

namespace {

constexpr int kPatience = 500; // milliseconds for all threads together

// A stop: `state` is the number of the dump times 4, plus one of these.
enum Phase { asked = 0, copying = 1, held = 2, released = 3 };
struct Stop {
    std::atomic<int> state;
    ucontext_t context;
    fpregset_t floatingOf;
    user_fpregs_struct floating;
    std::uint64_t threadPointer;
};
Stop* stops = nullptr;
int dumpNumber = 0;
bool handlerStays = false; // a signal is under way that may come at any time
struct sigaction former;

int signalOfStops() {
    return SIGRTMIN + 6;
}

void onStop(int, siginfo_t* info, void* context) {
    const int saved = errno;
    const auto value = reinterpret_cast<std::uintptr_t>(info->si_value.sival_ptr);
    const int base = static_cast<int>(value >> 16) * 4;
    Stop& stop = stops[value & 0xffff];
    int expected = base + asked;
    if (stop.state.compare_exchange_strong(expected, base + copying)) {
        std::memcpy(&stop.context, context, sizeof stop.context);
        if (const auto* floating = stop.context.uc_mcontext.fpregs)
            std::memcpy(&stop.floating, floating, sizeof stop.floating);
        stop.threadPointer = reinterpret_cast<std::uint64_t>(__builtin_thread_pointer());
        stop.state = base + held;
        wakeAll(stop.state);
        while (stop.state == base + held)
            waitWhile(stop.state, base + held, 1000);
    }
    errno = saved;
}

bool prepare() {
    if (stops == nullptr) {
        void* block = ::mmap(nullptr, sizeof(Stop) * kMostThreads, PROT_READ | PROT_WRITE,
                             MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (block == MAP_FAILED)
            return false;
        stops = static_cast<Stop*>(block);
    }
    struct sigaction action = {};
    action.sa_sigaction = onStop;
    action.sa_flags = SA_SIGINFO | SA_RESTART | SA_ONSTACK;
    ::sigfillset(&action.sa_mask);
    // What a host blocks it by must not be the faults of the handler.
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP})
        ::sigdelset(&action.sa_mask, fault);
    return handlerStays || ::sigaction(signalOfStops(), &action, &former) == 0;
}

bool ask(const Work& work, std::size_t index, int base) {
    stops[index].state = base + asked;
    siginfo_t info = {};
    info.si_code = SI_QUEUE;
    info.si_pid = work.process;
    info.si_uid = ::getuid();
    info.si_value.sival_ptr =
        reinterpret_cast<void*>(static_cast<std::uintptr_t>(base / 4) << 16 | index);
    return ::syscall(SYS_rt_tgsigqueueinfo, work.process, work.tasks[index], signalOfStops(),
                     &info) == 0;
}

std::int64_t milliseconds() {
    timespec now = {};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * std::int64_t{1000} + now.tv_nsec / 1'000'000;
}

// Whether the thread is held; one that did not answer in time is let off.
bool answered(Stop& stop, int base, std::int64_t until) {
    for (;;) {
        int state = stop.state;
        const std::int64_t left = until - milliseconds();
        if (state == base + held)
            return true;
        if (state == base + asked && left <= 0 &&
            stop.state.compare_exchange_strong(state, base + released))
            return false;
        waitWhile(stop.state, state, static_cast<int>(left > 20 ? 20 : 1));
    }
}

// Stack and instruction pointer of a thread that waits in the kernel:
// "number arguments... 0xSP 0xPC".
void readWaiting(Thread& thread) {
    char path[64];
    std::snprintf(path, sizeof path, "/proc/self/task/%d/syscall", thread.id);
    char line[256] = {};
    const int file = ::open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return;
    const ssize_t size = ::read(file, line, sizeof line - 1);
    ::close(file);
    std::uint64_t last[2] = {0, 0};
    const char* at = size > 0 ? line : "";
    while ((at = std::strstr(at, " 0x")) != nullptr) {
        last[0] = last[1];
        last[1] = 0;
        for (at += 3; *at != ' ' && *at != '\n' && *at != '\0'; ++at)
            last[1] =
                last[1] * 16 + static_cast<std::uint64_t>(*at <= '9' ? *at - '0' : *at - 'a' + 10);
    }
    thread.registers.rsp = last[0];
    thread.registers.rip = last[1];
    thread.registers.cs = 0x33;
    thread.registers.ss = 0x2b;
    thread.stopped = last[1] != 0;
}

void takeStop(Thread& thread, const Stop& stop) {
    takeContext(thread, stop.context);
    thread.floating = stop.floating;
    thread.registers.fs_base = stop.threadPointer;
    thread.stopped = true;
}

} // namespace

bool writeBySignals(Work& work) noexcept {
    if (!prepare())
        return false;
    const int base = (++dumpNumber & 0xffffff) * 4;
    const auto self = static_cast<pid_t>(::syscall(SYS_gettid));
    const std::size_t count = listTasks(work);
    work.threadCount = count;
    for (std::size_t i = 0; i < count; ++i) {
        work.threads[i] = {};
        work.threads[i].id = work.tasks[i];
        const bool sent = work.tasks[i] != self && ask(work, i, base);
        if (!sent)
            stops[i].state = base + released;
    }
    const std::int64_t until = milliseconds() + kPatience;
    for (std::size_t i = 0; i < count; ++i) {
        Thread& thread = work.threads[i];
        if (thread.id == self) {
            ucontext_t own = {};
            ::getcontext(&own);
            takeContext(thread, own);
            thread.registers.fs_base = reinterpret_cast<std::uint64_t>(__builtin_thread_pointer());
            thread.stopped = true;
        } else if (stops[i].state != base + released && answered(stops[i], base, until)) {
            takeStop(thread, stops[i]);
        } else {
            handlerStays = true;
            readWaiting(thread);
        }
    }
    work.finished = writeStopped(work) ? 1 : 0;
    for (std::size_t i = 0; i < count; ++i) {
        stops[i].state = base + released;
        wakeAll(stops[i].state);
    }
    if (!handlerStays)
        ::sigaction(signalOfStops(), &former, nullptr);
    return true;
}

} // namespace platform::core
