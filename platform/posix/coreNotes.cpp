// The notes of a core: what debuggers read of threads, signal, process and mapped files.
//
// For the failing thread NT_PRSTATUS, NT_PRPSINFO, NT_SIGINFO, NT_AUXV, NT_FILE, NT_FPREGSET, for
// each other one NT_PRSTATUS and NT_FPREGSET: debuggers take the first thread as the current one,
// and notes of a thread follow its NT_PRSTATUS.

#include <elf.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/procfs.h>
#include <unistd.h>
#include <algorithm>
#include <cstring>

#include "coreWork.h"

namespace platform::core {

namespace {

constexpr char kOwner[] = "CORE";
constexpr std::size_t kOwnerField = 8; // its name with what fills up to a multiple of 4

std::size_t padded(std::size_t size) {
    return (size + 3) / 4 * 4;
}

// Begins a note and gives the place for its content; null if there is no room.
unsigned char* beginNote(Work& work, std::uint32_t type, std::size_t size) {
    const Elf64_Nhdr head = {sizeof kOwner, static_cast<Elf64_Word>(size), type};
    const std::size_t whole = sizeof head + kOwnerField + padded(size);
    if (whole > kNotesSize - work.notesUsed)
        return nullptr;
    unsigned char* at = work.notes + work.notesUsed;
    std::memset(at, 0, whole);
    std::memcpy(at, &head, sizeof head);
    std::memcpy(at + sizeof head, kOwner, sizeof kOwner);
    work.notesUsed += whole;
    return at + sizeof head + kOwnerField;
}

void addNote(Work& work, std::uint32_t type, const void* content, std::size_t size) {
    if (unsigned char* at = beginNote(work, type, size))
        std::memcpy(at, content, size);
}

// Reads a small file of /proc; the bytes that came.
std::size_t readProc(const char* path, void* out, std::size_t size) {
    const int file = ::open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return 0;
    const ssize_t count = ::read(file, out, size);
    ::close(file);
    return count > 0 ? static_cast<std::size_t>(count) : 0;
}

struct SignalOfCode {
    std::uint32_t code;
    int signal;
    int reason; // si_code
};
// The signals that become these exceptions.
constexpr SignalOfCode kSignals[] = {
    {0xC0000005, SIGSEGV, SEGV_MAPERR}, {0xC00000FD, SIGSEGV, SEGV_ACCERR},
    {0xC0000096, SIGSEGV, SI_KERNEL},   {0x80000002, SIGBUS, BUS_ADRALN},
    {0xC0000006, SIGBUS, BUS_ADRERR},   {0xC0000094, SIGFPE, FPE_INTDIV},
    {0xC0000095, SIGFPE, FPE_INTOVF},   {0xC000008E, SIGFPE, FPE_FLTDIV},
    {0xC0000091, SIGFPE, FPE_FLTOVF},   {0xC0000093, SIGFPE, FPE_FLTUND},
    {0xC000008F, SIGFPE, FPE_FLTRES},   {0xC0000090, SIGFPE, FPE_FLTINV},
    {0xC000001D, SIGILL, ILL_ILLOPN},   {0x80000003, SIGTRAP, SI_KERNEL},
    {0x80000004, SIGTRAP, TRAP_TRACE},
};

// The signal behind the exception; number 0 where none is.
siginfo_t signalOf(const Work& work) {
    siginfo_t info = {};
    if (work.fault == nullptr)
        return info;
    const auto* found =
        std::find_if(std::begin(kSignals), std::end(kSignals),
                     [&](const SignalOfCode& row) { return row.code == work.fault->code; });
    if (found == std::end(kSignals))
        return info;
    info.si_signo = found->signal;
    info.si_code = found->reason;
    const bool aboutMemory = found->signal == SIGSEGV || found->signal == SIGBUS;
    info.si_addr = aboutMemory && work.fault->parameterCount >= 2
                       ? reinterpret_cast<void*>(work.fault->parameters[1])
                       : work.fault->address;
    return info;
}

void addStatus(Work& work, const Thread& thread, int signal) {
    elf_prstatus status = {};
    status.pr_pid = thread.id;
    status.pr_ppid = work.parent;
    status.pr_cursig = static_cast<short>(signal);
    status.pr_info.si_signo = signal;
    status.pr_fpvalid = 1;
    static_assert(sizeof status.pr_reg == sizeof thread.registers);
    std::memcpy(&status.pr_reg, &thread.registers, sizeof status.pr_reg);
    addNote(work, NT_PRSTATUS, &status, sizeof status);
}

void addProcess(Work& work) {
    elf_prpsinfo process = {};
    process.pr_sname = 'R';
    process.pr_pid = work.process;
    const std::size_t name = readProc("/proc/self/comm", process.pr_fname, 15);
    if (name != 0 && process.pr_fname[name - 1] == '\n')
        process.pr_fname[name - 1] = '\0';
    const std::size_t arguments = readProc("/proc/self/cmdline", process.pr_psargs, 79);
    if (arguments != 0)
        std::replace(process.pr_psargs, process.pr_psargs + arguments - 1, '\0', ' ');
    addNote(work, NT_PRPSINFO, &process, sizeof process);
}

// Count and page size, then begin, end and page of each mapping of a file, then the names.
void addFiles(Work& work) {
    std::size_t count = 0;
    std::size_t size = 2 * sizeof(std::uint64_t);
    for (std::size_t i = 0; i < work.mapCount; ++i)
        if (work.maps[i].hasFile) {
            ++count;
            size += 3 * sizeof(std::uint64_t) + std::strlen(work.names + work.maps[i].name) + 1;
        }
    unsigned char* at = beginNote(work, NT_FILE, size);
    if (at == nullptr)
        return;
    const auto put = [&at](const void* bytes, std::size_t length) {
        std::memcpy(at, bytes, length);
        at += length;
    };
    const std::uint64_t head[] = {count, kPage};
    put(head, sizeof head);
    for (std::size_t i = 0; i < work.mapCount; ++i) {
        const Map& map = work.maps[i];
        const std::uint64_t range[] = {map.begin, map.end, map.offset / kPage};
        if (map.hasFile)
            put(range, sizeof range);
    }
    for (std::size_t i = 0; i < work.mapCount; ++i) {
        const char* name = work.names + work.maps[i].name;
        if (work.maps[i].hasFile)
            put(name, std::strlen(name) + 1);
    }
}

void addOfProcess(Work& work, const siginfo_t& info) {
    addProcess(work);
    if (info.si_signo != 0)
        addNote(work, NT_SIGINFO, &info, sizeof info);
    if (const std::size_t size = readProc("/proc/self/auxv", work.text, sizeof work.text))
        addNote(work, NT_AUXV, work.text, size);
    addFiles(work);
}

} // namespace

void makeNotes(Work& work) noexcept {
    work.notesUsed = 0;
    const siginfo_t info = signalOf(work);
    for (std::size_t i = 0; i < work.threadCount; ++i) {
        const Thread& thread = work.threads[i];
        // Of all threads the same, as in the kernel's cores: debuggers show the last they read.
        addStatus(work, thread, info.si_signo);
        if (i == 0)
            addOfProcess(work, info);
        addNote(work, NT_FPREGSET, &thread.floating, sizeof thread.floating);
    }
}

} // namespace platform::core
