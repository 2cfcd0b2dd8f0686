// The writer of dumps on Linux: this process as an ELF core, which debuggers open.

#include <linux/futex.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>
#include <utility>

#include "coreWork.h"
#include "platform/dumpWriter.h"
#include "systemTables.h"

namespace platform {

namespace core {

bool mayTrace = true;

void waitWhile(std::atomic<int>& word, int value, int milliseconds) noexcept {
    static_assert(sizeof word == sizeof(int));
    const timespec limit = {milliseconds / 1000, milliseconds % 1000 * 1'000'000};
    if (word == value)
        ::syscall(SYS_futex, &word, FUTEX_WAIT_PRIVATE, value, &limit, nullptr, 0);
}

void wakeAll(std::atomic<int>& word) noexcept {
    ::syscall(SYS_futex, &word, FUTEX_WAKE_PRIVATE, INT_MAX, nullptr, nullptr, 0);
}

void takeContext(Thread& thread, const ucontext_t& context) noexcept {
    const auto& from = context.uc_mcontext.gregs;
    user_regs_struct& to = thread.registers;
    const auto value = [&from](int index) { return static_cast<unsigned long long>(from[index]); };
    to.r8 = value(REG_R8);
    to.r9 = value(REG_R9);
    to.r10 = value(REG_R10);
    to.r11 = value(REG_R11);
    to.r12 = value(REG_R12);
    to.r13 = value(REG_R13);
    to.r14 = value(REG_R14);
    to.r15 = value(REG_R15);
    to.rdi = value(REG_RDI);
    to.rsi = value(REG_RSI);
    to.rbp = value(REG_RBP);
    to.rbx = value(REG_RBX);
    to.rdx = value(REG_RDX);
    to.rax = value(REG_RAX);
    to.rcx = value(REG_RCX);
    to.rsp = value(REG_RSP);
    to.rip = value(REG_RIP);
    to.eflags = value(REG_EFL);
    to.orig_rax = ~0ull; // in no call of the kernel
    to.cs = 0x33;
    to.ss = 0x2b;
}

bool writeStopped(Work& work) noexcept {
    for (std::size_t i = 0; i < work.threadCount; ++i)
        if (work.threads[i].id == work.failing) {
            std::swap(work.threads[0], work.threads[i]);
            if (work.context != nullptr) {
                takeContext(work.threads[0], *work.context);
                work.threads[0].stopped = true;
            }
            break;
        }
    work.mapCount = 0;
    work.namesUsed = 0;
    readMaps(work);
    chooseSegments(work);
    makeNotes(work);
    return writeFile(work);
}

} // namespace core

namespace {

constexpr std::uint32_t kFullMemory = 2;

void takeException(core::Work& work, const DumpException* exception) {
    if (exception == nullptr)
        return;
    work.failing = static_cast<pid_t>(exception->threadId);
    const sExceptionPointers* pointers = exception->pointers;
    if (dumpCalls.badMemory(pointers, sizeof *pointers))
        return;
    if (!dumpCalls.badMemory(pointers->record, sizeof *pointers->record))
        work.fault = pointers->record;
    if (!dumpCalls.badMemory(pointers->context, sizeof(ucontext_t)))
        work.context = static_cast<const ucontext_t*>(pointers->context);
}

// MiniDumpWriteDump of the process that calls it.  One dump at a time.
std::int32_t writeCore(void*, std::uint32_t, DumpFile file, std::uint32_t kind,
                       const DumpException* exception, const void*, const void*) {
    void* block = ::mmap(nullptr, sizeof(core::Work), PROT_READ | PROT_WRITE,
                         MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (block == MAP_FAILED)
        return 0;
    auto& work = *static_cast<core::Work*>(block); // zeroes are its start
    work.file = static_cast<int>(reinterpret_cast<std::intptr_t>(file)) - 1;
    work.full = (kind & kFullMemory) != 0;
    work.process = ::getpid();
    work.parent = ::getppid();
    work.finished = -1;
    takeException(work, exception);
    if (!core::mayTrace || !core::writeByTracer(work))
        core::writeBySignals(work);
    const bool written = work.finished == 1;
    ::munmap(block, sizeof(core::Work));
    return written ? 1 : 0;
}

} // namespace

void* findDumpWriter(const char* name) {
    // Asked for before this file's own initialisers have run.
    const SystemFunction functions[] = {{"MiniDumpWriteDump", addressOf(writeCore)}};
    return findFunction(functions, name);
}

} // namespace platform
