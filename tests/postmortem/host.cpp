// One process that fails: vdreader_postmortem_host FOLDER KIND WHERE TIMES.
//
//   KIND   the fault, see kFaults; or "request" and "requestFull" for a dump without one; or
//          "victim" for the end of a thread that stands inside the heap's functions
//   WHERE  "main", "worker", "callback" of a walk through the folder's flimit.vd, or "blocked":
//          on the main thread, which blocks its signals first.  Of the victim: "shared", with a
//          heap that all threads take from, or "own"
//   TIMES  so often
//
// The victim is told of by "holds" and "ended".  On Windows it lets the heap go when there is a
// file "release".
//
// Works in the folder and writes a line for each fault that it caught, "use HANDLES THREADS BYTES
// MAPPINGS" behind the second one and the last, and "goes on" at its end.

#include <atomic>
#include <chrono>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>

#include "../support/damagedHeap.h"
#include "../support/processUse.h"
#include "vdreader/errors.hpp"
#include "vdreader/vdreader.h"

#ifdef _WIN32
#  include <tlhelp32.h>
#else
#  include <malloc.h>
#  include <pthread.h>
#  include <signal.h>
#  include <sys/mman.h>
#  include <unistd.h>
#endif

#define PLAIN extern "C" __attribute__((noinline, no_sanitize("undefined", "address")))
#define FAULT PLAIN void

volatile int sink;
int* volatile noAddress = nullptr;

// A text of the heap, which stands nowhere else in the process: the test looks for it in dumps.
extern "C" {
char* hostHeap = nullptr;
}

void fillHeap() {
    static const char kShifted[] = "lfqu!jo!uif!ifbq!pg!uif!iptu";
    hostHeap = new char[sizeof kShifted]();
    for (std::size_t i = 0; i + 1 < sizeof kShifted; ++i)
        const_cast<volatile char&>(hostHeap[i]) = static_cast<char>(kShifted[i] - 1);
}

std::atomic<bool> waiting{false};

// Another thread, for the debugger to see.
PLAIN void hostWaits() {
    waiting = true;
    while (waiting)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

FAULT hostNullRead() {
    sink = *noAddress;
    sink = 1;
}
FAULT hostNullWrite() {
    *noAddress = 1;
    sink = 1;
}
FAULT hostDivide() {
    volatile int zero = 0;
    sink = sink / zero;
    sink = 1;
}
FAULT hostOverflow() {
    volatile int least = INT_MIN;
    volatile int minusOne = -1;
    sink = least / minusOne;
    sink = 1;
}
FAULT hostIllegalInstruction() {
    asm volatile("ud2");
    sink = 1;
}
FAULT hostBreakpoint() {
    asm volatile("int3");
    sink = 1;
}
FAULT hostMisalignment() {
    alignas(16) char bytes[32] = {};
    asm volatile("movaps %%xmm0, %0" : "=m"(*reinterpret_cast<char(*)[16]>(bytes + 1)));
    sink = bytes[1];
}
// Small frames: Wine ends a thread whose first access behind the stack is far behind it.
PLAIN int hostStackOverflow(int depth) {
    volatile char block[200];
    block[0] = static_cast<char>(depth);
    if (depth < 0)
        return block[0];
    return hostStackOverflow(depth + 1) + block[0];
}
FAULT hostOverflowStack() {
    sink = hostStackOverflow(0);
}
FAULT hostJumpToNull() {
    void (*volatile target)() = nullptr;
    target();
    sink = 1;
}
#ifdef _WIN32
// Files do not shrink under a view there: the exception that a lost disk causes is raised instead.
FAULT hostInPageError() {
    const ULONG_PTR read[] = {0, 4096, 0xC000009C};
    ::RaiseException(0xC0000006, 0, 3, read);
    sink = 1;
}
#else
FAULT hostInPageError() {
    std::FILE* file = std::fopen("short", "wb+");
    const auto* view = static_cast<const volatile char*>(
        ::mmap(nullptr, 8192, PROT_READ, MAP_SHARED, ::fileno(file), 0));
    std::fclose(file);
    sink = view[4096];
    sink = 1;
}
#endif

namespace {

struct Fault {
    const char* kind;
    void (*cause)();
};
const Fault kFaults[] = {
    {"nullRead", hostNullRead},
    {"nullWrite", hostNullWrite},
    {"divide", hostDivide},
    {"overflow", hostOverflow},
    {"illegal", hostIllegalInstruction},
    {"breakpoint", hostBreakpoint},
    {"misalignment", hostMisalignment},
    {"stackOverflow", hostOverflowStack},
    {"jump", hostJumpToNull},
    {"inPage", hostInPageError},
    {"request", [] { CreateProcessDump(0, false, false); }},
    {"requestFull", [] { CreateProcessDump(2, false, false); }},
};

void (*causeOf(const char* kind))() {
    for (const Fault& fault : kFaults)
        if (std::strcmp(fault.kind, kind) == 0)
            return fault.cause;
    std::fprintf(stderr, "no such fault\n");
    std::exit(2);
}

void (*cause)();

// The walk takes the exception, and tells its text.
void walk() {
    const FutLimitCallback fail = [](sFutLimit*) -> std::int32_t { return cause(), 0; };
    if (for_each_futlimit(fail) == 0)
        std::printf("caught %s\n", get_vdreader_error());
}

// As hosts do that have a thread of their own for signals.
void blockedCause() {
#ifndef _WIN32
    sigset_t all;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_BLOCK, &all, nullptr);
#endif
    cause();
}

#ifdef _WIN32
std::int64_t threads() {
    const HANDLE snapshot = ::CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 entry = {};
    entry.dwSize = sizeof entry;
    std::int64_t found = 0;
    for (BOOL is = ::Thread32First(snapshot, &entry); is != 0;
         is = ::Thread32Next(snapshot, &entry))
        found += entry.th32OwnerProcessID == ::GetCurrentProcessId() ? 1 : 0;
    ::CloseHandle(snapshot);
    return found;
}
std::int64_t mappings() {
    return 0; // not to be had
}
#else
std::int64_t threads() {
    return runningThreads();
}
std::int64_t mappings() {
    std::ifstream maps("/proc/self/maps");
    std::int64_t found = 0;
    for (std::string line; std::getline(maps, line);)
        ++found;
    return found;
}
#endif

void tellUse() {
    const long long use[] = {openHandles(), threads(), privateBytes(), mappings()};
    std::printf("use %lld %lld %lld %lld\n", use[0], use[1], use[2], use[3]);
}

void failAndGoOn(const std::function<void()>& work, int times) {
    const sExceptionTranslator former = util_set_se_translator(seh_translator);
    for (int i = 0; i < times; ++i) {
        try {
            work();
        } catch (const CSEHError& failure) {
            std::printf("caught %s\n", failure.what());
        }
        if (i == 1 || (i > 1 && i + 1 == times))
            tellUse();
    }
    util_set_se_translator(former);
}

// ---- a thread that stands inside the heap ----

std::atomic<bool> holdsHeap{false};

#ifdef _WIN32
DWORD WINAPI hostHoldsHeap(void*) {
    ::HeapLock(::GetProcessHeap());
    holdsHeap = true;
    while (::GetFileAttributesA("release") == INVALID_FILE_ATTRIBUTES)
        ::Sleep(10);
    ::HeapUnlock(::GetProcessHeap());
    ::Sleep(INFINITE);
    return 0;
}

void tell(const char* text) {
    DWORD written = 0;
    ::WriteFile(::GetStdHandle(STD_OUTPUT_HANDLE), text, static_cast<DWORD>(std::strlen(text)),
                &written, nullptr);
}

void* startVictim(bool) {
    return ::CreateThread(nullptr, 0, hostHoldsHeap, nullptr, 0, nullptr);
}
#else
void stayForEver(int) {
    holdsHeap = true;
    for (;;)
        ::pause();
}

// A fault of malloc, whose handler does not come back.
PLAIN void* hostHoldsHeap(void*) {
    ::signal(SIGSEGV, stayForEver);
    void* volatile next = allocateFromDamagedHeap(); // a call with something to do behind it
    return next;
}

void tell(const char* text) {
    [[maybe_unused]] const ssize_t written = ::write(1, text, std::strlen(text));
}

void* startVictim(bool shared) {
    if (shared)
        ::mallopt(M_ARENA_MAX, 1);
    pthread_t thread = {};
    ::pthread_create(&thread, nullptr, hostHoldsHeap, nullptr);
    return reinterpret_cast<void*>(thread);
}
#endif

int endVictim(bool shared) {
    init_logs("HOST");
    void* const victim = startVictim(shared);
    while (!holdsHeap)
        std::this_thread::yield();
    tell("holds\n");
    const bool ended = NTerminateThread(victim, 1) != 0;
    tell(ended ? "ended\n" : "not ended\n");
    shutdown_logs();
    return ended ? 0 : 1;
}

// The first notice to a service that is not there raises.
void meetTheService() {
    try {
        SendSvctlError(0, 0, 0, 0, 0, 0, nullptr);
    } catch (const std::exception& failure) {
        std::printf("no service\n");
    }
}

} // namespace

int main(int count, char** arguments) {
    if (count != 5)
        return 2;
    std::filesystem::current_path(arguments[1]);
    const std::string where = arguments[3];
    if (std::strcmp(arguments[2], "victim") == 0)
        return endVictim(where == "shared");
    cause = causeOf(arguments[2]);
    const int times = static_cast<int>(std::strtol(arguments[4], nullptr, 10));
    fillHeap();
    meetTheService();
    const std::function<void()> work = where == "callback"  ? walk
                                       : where == "blocked" ? blockedCause
                                                            : cause;
    if (where == "worker") {
        std::thread bystander(hostWaits);
        while (!waiting)
            std::this_thread::yield();
        std::thread([&work, times] { failAndGoOn(work, times); }).join();
        waiting = false;
        bystander.join();
    } else {
        failAndGoOn(work, times);
    }
    shutdown_logs();
    std::printf("goes on\n");
    return 0;
}
