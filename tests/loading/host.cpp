// A host that loads the library, uses a part of it and unloads it, over and over.
//
//   vdreader_loading_host LIBRARY PART ROUNDS
//
// Parts: plain, a getter; walk, a stack report; svctl, a notice without a service to take it; log,
// lines, with the logger shut down; tracing, both monitors, shut down; translator, one set and
// taken back.  Behind the first three the library is gone after each unload and the heap holds what
// it held; the others keep the library in the process by design, so that only what a further round
// adds can be told.  In a single round the part is left as it is, monitors running, and the process
// comes to its end: no monitor may be left when the first handlers of the process run.

#include <array>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string_view>
#include <thread>

#ifdef _WIN32
#  include "../support/processUse.h"
#else
#  include <dirent.h>
#  include <dlfcn.h>
#  include <malloc.h>
#  include <unistd.h>
#endif

namespace {

#ifdef _WIN32

void* load(const char* path) {
    return reinterpret_cast<void*>(::LoadLibraryA(path));
}

bool isLoaded(const char* path) {
    return ::GetModuleHandleA(path) != nullptr;
}

void* symbol(void* library, const char* name) {
    return reinterpret_cast<void*>(::GetProcAddress(static_cast<HMODULE>(library), name));
}

void unload(void* library) {
    ::FreeLibrary(static_cast<HMODULE>(library));
}

long usedBytes() {
    return static_cast<long>(privateBytes());
}

// Libraries of the system that a host has anyway.  Each load of theirs keeps memory: under Wine the
// C library keeps a copy of the command line and the debug help some 17 KB for each report.
void holdSystemLibraries() {
    for (const char* name : {"ucrtbase.dll", "dbghelp.dll", "ws2_32.dll", "psapi.dll"})
        ::LoadLibraryA(name);
}

// A mutex of the C++ run-time takes memory when it is locked first, and never gives it back.
constexpr long kLock = 24;
// What the debug help of Wine keeps of each load of symbols: 1,224 bytes with nothing called
// between SymInitialize and SymCleanup, and behind a walk the name of a source file of the
// system's, which it begins with the working folder.
long keptBySymbols() {
    constexpr long kTables = 1224;
    constexpr long kSourceName = 61;
    const DWORD folderAndEnd = ::GetCurrentDirectoryA(0, nullptr);
    return kTables + kSourceName + static_cast<long>(folderAndEnd) - 1;
}
// A lock of the C++ run-time gets its event or its semaphores when threads first meet at it.  Where
// the library stays, so do these, however many rounds there are.
constexpr long kLateHandles = 8;
constexpr long kLateBytes = 2048;

long threadsAtTheEnd = 1;

// The system ends the threads itself, before any handler.
void expectNoMonitor() {}

#else

void* load(const char* path) {
    return ::dlopen(path, RTLD_NOW | RTLD_LOCAL);
}

bool isLoaded(const char* path) {
    void* const library = ::dlopen(path, RTLD_NOW | RTLD_NOLOAD);
    if (library != nullptr)
        ::dlclose(library);
    return library != nullptr;
}

void* symbol(void* library, const char* name) {
    return ::dlsym(library, name);
}

void unload(void* library) {
    ::dlclose(library);
}

long entriesOf(const char* folder) {
    long count = 0;
    DIR* const entries = ::opendir(folder);
    while (entries != nullptr && ::readdir(entries) != nullptr)
        ++count;
    if (entries != nullptr)
        ::closedir(entries);
    return count;
}

long openHandles() {
    return entriesOf("/proc/self/fd") + entriesOf("/proc/self/task");
}

long usedBytes() {
    return static_cast<long>(::mallinfo2().uordblks);
}

void holdSystemLibraries() {}
constexpr long kLock = 0;

long keptBySymbols() {
    return 0;
}

constexpr long kLateHandles = 0;
constexpr long kLateBytes = 0;

long threadsAtTheEnd = 1;

// Runs behind the library's own handlers, which were entered later.
void expectNoMonitor() {
    constexpr long kDots = 2;
    // A thread that was joined may still be listed for a moment.
    for (int i = 0; i < 200; ++i) {
        if (entriesOf("/proc/self/task") - kDots <= threadsAtTheEnd)
            return;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    std::puts("a monitor of the library is left");
    std::fflush(stdout);
    ::_exit(4);
}

#endif

using std::string_view;

struct Part {
    string_view name;
    bool stays;           // the library is kept from the first round on
    long keptInEachRound; // bytes, by design
    long keptBySystem;    // the same, by libraries that are not ours
};
// The line buffer and the mark of a thread outlive it, and the library's next load does not find
// them again.
constexpr long kLineBuffer = 4016;
constexpr long kMark = 32;
constexpr std::array<Part, 6> kParts = {{
    {"plain", false, 0, kLock},
    {"walk", false, kLineBuffer, kLock}, // and keptBySymbols()
    {"svctl", false, kLineBuffer, 2 * kLock},
    {"log", true, kMark, 0},                         // of the worker
    {"tracing", true, 2 * (kMark + kLineBuffer), 0}, // of the two monitors
    {"translator", true, 0, 0},
}};

[[noreturn]] void fail(const char* what) {
    std::puts(what);
    std::exit(2);
}

template <class Function>
Function* find(void* library, const char* name) {
    void* const address = symbol(library, name);
    if (address == nullptr)
        fail(name);
    return reinterpret_cast<Function*>(address);
}

void notify(void* library) {
    using Send = void(std::uint32_t, std::uint32_t, std::uint16_t, std::uint32_t, std::uint32_t,
                      std::uint8_t, const char*);
    Send* const send = find<Send>(library, "SendSvctlError");
    try {
        send(20, 1, 5, 0, 0, 1, nullptr);
        fail("a service was found");
    } catch (const std::exception&) {
        // There is none.
    }
    send(20, 1, 5, 0, 0, 1, nullptr); // tells so in a line
}

void use(void* library, string_view part, bool shutsDown) {
    if (std::strcmp(find<const char*()>(library, "get_vdreader_error")(), "Unknown error") != 0)
        fail("get_vdreader_error");
    if (part == "walk") {
        find<void(const void*)>(library, "ServerStackWalk")(nullptr);
    } else if (part == "svctl") {
        notify(library);
    } else if (part == "log") {
        find<void(const char*)>(library, "init_logs")("HOST");
        find<void(const char*, ...)>(library, "event")("a line\n");
        if (shutsDown)
            find<void()>(library, "shutdown_logs")();
    } else if (part == "tracing") {
        find<void()>(library, "MemTraceInit")();
        find<void()>(library, "TrafficTraceInit")();
        if (shutsDown) {
            find<void()>(library, "MemTraceShutDown")();
            find<void()>(library, "TrafficTraceShutDown")();
        }
    } else if (part == "translator") {
        auto* const set = find<void*(void*)>(library, "util_set_se_translator");
        set(symbol(library, "seh_translator"));
        if (shutsDown)
            set(nullptr);
    }
}

void cycle(const char* path, const Part& part, bool shutsDown) {
    void* const library = load(path);
    if (library == nullptr)
        fail("cannot load the library");
    use(library, part.name, shutsDown);
    if (!shutsDown)
        return;
    unload(library);
    if (isLoaded(path) != part.stays)
        fail(part.stays ? "the library is gone" : "the library is still loaded");
}

int countRounds(const char* path, const Part& part, int rounds) {
    holdSystemLibraries();
    // What the first rounds leave (buffers of the C library, caches of the loader) is no leak.
    constexpr int kFirst = 10;
    for (int round = 0; round < kFirst; ++round)
        cycle(path, part, true);
    const auto handles = static_cast<long>(openHandles());
    const long bytes = usedBytes();
    for (int round = kFirst; round < rounds; ++round)
        cycle(path, part, true);
    const long allowedHandles = part.stays ? kLateHandles : 0;
    const long inEachRound =
        part.keptInEachRound + part.keptBySystem + (part.name == "walk" ? keptBySymbols() : 0);
    const long allowedBytes = inEachRound * (rounds - kFirst) + (part.stays ? kLateBytes : 0);
    long moreHandles = 0;
    long moreBytes = 0;
    // Threads that have been told to stop may still be on their way out.
    for (int i = 0; i < 200; ++i) {
        moreHandles = static_cast<long>(openHandles()) - handles;
        moreBytes = usedBytes() - bytes;
        if (moreHandles <= allowedHandles && moreBytes <= allowedBytes)
            break;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    std::printf("%+ld handles, %+ld bytes\n", moreHandles, moreBytes);
    return moreHandles <= allowedHandles && moreBytes <= allowedBytes ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    int rounds = 0;
    if (argc != 4)
        return 2;
    std::from_chars(argv[3], argv[3] + std::strlen(argv[3]), rounds);
    for (const Part& part : kParts) {
        if (part.name != argv[2])
            continue;
        if (rounds > 1)
            return countRounds(argv[1], part, rounds);
        // The logger's worker stays where nobody shuts the logs down.
        threadsAtTheEnd = part.name == "log" || part.name == "tracing" ? 2 : 1;
        std::atexit(expectNoMonitor);
        cycle(argv[1], part, false);
        return 0;
    }
    return 2;
}
