// Counting of allocations and system calls.
//
// Allocations pass entry points of our own that go on to those of the C library.  System calls are
// turned into a signal by the kernel (syscall user dispatch) while a byte in memory says so.

#include "watch.h"

#include <signal.h>
#include <sys/prctl.h>
#include <ucontext.h>
#include <unistd.h>
#include <cerrno>
#include <cstddef>
#include <cstdlib>

#include "support.h"

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
}

namespace {

constexpr int kUserDispatch = 59; // PR_SET_SYSCALL_USER_DISPATCH
constexpr char kAllow = 0, kBlock = 1;

thread_local std::uint64_t allocations = 0;
volatile char selector = kAllow;
volatile std::uint64_t trapped = 0;

// Makes the call that was held up, with the watch off: the way out of a signal is a system call.
void onSystemCall(int, siginfo_t*, void* context) {
    selector = kAllow;
    trapped = trapped + 1;
    auto& r = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
    const long result =
        ::syscall(r[REG_RAX], r[REG_RDI], r[REG_RSI], r[REG_RDX], r[REG_R10], r[REG_R8], r[REG_R9]);
    r[REG_RAX] = result == -1 ? -errno : result;
}

bool startDispatch() {
    struct sigaction action = {};
    action.sa_sigaction = onSystemCall;
    action.sa_flags = SA_SIGINFO;
    if (::sigaction(SIGSYS, &action, nullptr) != 0 ||
        ::prctl(kUserDispatch, 1, 0, 0, &selector) != 0)
        bench::stop("the system does not let a process watch its own system calls");
    return true;
}

} // namespace

extern "C" {

void* malloc(std::size_t size) {
    ++allocations;
    return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) {
    ++allocations;
    return __libc_calloc(count, size);
}

void* realloc(void* block, std::size_t size) {
    ++allocations;
    return __libc_realloc(block, size);
}

void* memalign(std::size_t alignment, std::size_t size) {
    ++allocations;
    return __libc_memalign(alignment, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
    return memalign(alignment, size);
}

int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
    *block = memalign(alignment, size);
    return *block != nullptr ? 0 : ENOMEM;
}

} // extern "C"

namespace bench::watching {

void begin() {
    static const bool started = startDispatch();
    static_cast<void>(started);
    allocations = 0;
    trapped = 0;
    selector = kBlock;
}

void end(Asked& asked) {
    selector = kAllow;
    asked.allocations += allocations;
    asked.systemCalls += trapped;
}

} // namespace bench::watching
