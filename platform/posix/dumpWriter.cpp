// What dumps need of Linux; the writer of their content begins in coreWriter.cpp.

#include "platform/dumpWriter.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "platform/thread.h"

namespace platform {

namespace {

constexpr std::uint64_t kUnitsOfASecond = 10'000'000;
constexpr std::int64_t kSecondsFrom1601 = 11'644'473'600;

std::uint64_t localFileTime() {
    timespec now = {};
    ::clock_gettime(CLOCK_REALTIME, &now);
    std::tm local = {};
    std::int64_t seconds = now.tv_sec + kSecondsFrom1601;
    if (::localtime_r(&now.tv_sec, &local) != nullptr)
        seconds += local.tm_gmtoff;
    return static_cast<std::uint64_t>(seconds) * kUnitsOfASecond +
           static_cast<std::uint64_t>(now.tv_nsec) / 100;
}

bool createFolder(const char* path) {
    return ::mkdir(path, 0777) == 0;
}

// The kernel reads the 8 bytes of a set of signals before it finds that the order given with them
// does not exist: that tells whether a page can be read, and changes nothing.
bool readable(std::uintptr_t address) {
    constexpr long kNoSuchOrder = -1;
    const auto aligned = reinterpret_cast<const void*>(address & ~std::uintptr_t{7});
    return ::syscall(SYS_rt_sigprocmask, kNoSuchOrder, aligned, nullptr, 8) != 0 && errno != EFAULT;
}

bool badMemory(const void* memory, std::size_t size) {
    const int saved = errno;
    constexpr std::uintptr_t kPage = 4096;
    const auto first = reinterpret_cast<std::uintptr_t>(memory);
    bool good = memory != nullptr && first <= UINTPTR_MAX - size;
    for (std::uintptr_t at = first; good && at < first + size; at = (at / kPage + 1) * kPage)
        good = readable(at);
    errno = saved;
    return !good;
}

__attribute__((no_sanitize("address"))) bool badText(const char* text, std::size_t limit) {
    if (text == nullptr)
        return true;
    for (std::size_t at = 0; at < limit; ++at) {
        const bool newPage = at == 0 || reinterpret_cast<std::uintptr_t>(text + at) % 4096 == 0;
        if (newPage && badMemory(text + at, 1))
            return true;
        if (text[at] == '\0')
            return false;
    }
    return false;
}

bool badSystemName(SystemName name, std::size_t limit) {
    return badText(static_cast<const char*>(name), limit);
}

// Pages of its own for each name: the heap may be what has failed.
constexpr std::size_t kNameSize = 4096;

SystemName systemName(const char* name) {
    const std::size_t length = std::strlen(name);
    if (length >= kNameSize) {
        errno = ENAMETOOLONG;
        return nullptr;
    }
    void* block =
        ::mmap(nullptr, kNameSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return block == MAP_FAILED ? nullptr : std::memcpy(block, name, length + 1);
}

void freeSystemName(SystemName name) {
    if (name != nullptr)
        ::munmap(name, kNameSize);
}

// A descriptor as a pointer that is not null.
DumpFile asFile(int descriptor) {
    return reinterpret_cast<DumpFile>(static_cast<std::intptr_t>(descriptor) + 1);
}

// The lock stands for opening without sharing; the content goes only when it is ours.
DumpFile createFile(SystemName name) {
    const int file =
        ::open(static_cast<const char*>(name), O_RDWR | O_CREAT | O_CLOEXEC | O_NOCTTY, 0600);
    if (file < 0)
        return nullptr;
    const bool taken = ::flock(file, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    if (!taken && ::ftruncate(file, 0) == 0)
        return asFile(file);
    const int reason = errno;
    ::close(file);
    errno = reason;
    return nullptr;
}

bool closeFile(DumpFile file) {
    return ::close(static_cast<int>(reinterpret_cast<std::intptr_t>(file)) - 1) == 0;
}

void* currentProcess() {
    return nullptr;
}

struct Work {
    void (*body)(void* argument);
    void* argument;
};

void* runWork(void* argument) {
    const auto* work = static_cast<const Work*>(argument);
    work->body(work->argument);
    return nullptr;
}

int startThread(pthread_t& thread, Work& work) {
    // The new thread inherits what is blocked; the calling one must be reached while it waits.
    const SignalsKeptOff keptOff;
    return ::pthread_create(&thread, nullptr, runWork, &work);
}

bool runOnThread(void (*body)(void* argument), void* argument) {
    Work work = {body, argument};
    pthread_t thread = {};
    if (const int failure = startThread(thread, work)) {
        errno = failure;
        return false;
    }
    ::pthread_join(thread, nullptr);
    return true;
}

} // namespace

constinit DumpCalls dumpCalls = {
    .localFileTime = localFileTime,
    .createFolder = createFolder,
    .badText = badText,
    .badSystemName = badSystemName,
    .badMemory = badMemory,
    .systemName = systemName,
    .freeSystemName = freeSystemName,
    .createFile = createFile,
    .closeFile = closeFile,
    .currentProcess = currentProcess,
    .runOnThread = runOnThread,
};

} // namespace platform
