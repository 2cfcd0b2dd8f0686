// Translators on Windows: g++'s run-time asks none, so a vectored handler does, which sees a fault
// before any frame.

#include "faultState.h"

#include <new>

#include "platform/error.h"
#include "platform/startUp.h"
#include "platform/threadBlock.h"

namespace platform {

namespace {

// Of a stack that overflows, what the filters of guarded blocks find.
constexpr ULONG kRoomAfterOverflow = 64 << 10;

constinit DWORD slot = TLS_OUT_OF_INDEXES;

// Exceptions that stand for no fault: those of C++ run-times, and messages for debuggers.
bool isMessage(DWORD code) {
    constexpr DWORD kGnu = 0x20474343; // throw, unwind, forced unwind
    return (code & 0xfcffffff) == kGnu || code == 0xE06D7363 || code == 0x40010006 ||
           code == 0x4001000A || code == 0x406D1388;
}

// The code that runs next expects no pending floating-point faults and all of them masked.
void calmProcessor(CONTEXT& context) {
    context.EFlags &= ~0x40500u; // alignment checks, direction, single step
    context.MxCsr = (context.MxCsr | 0x1f80u) & ~0x3fu;
    context.FltSave.MxCsr = context.MxCsr;
    context.FltSave.ControlWord |= 0x3f;
    context.FltSave.StatusWord = static_cast<WORD>(context.FltSave.StatusWord & ~0x80ff);
}

void keepFault(ThreadFaults& thread, const EXCEPTION_POINTERS& pointers) {
    thread.record = *pointers.ExceptionRecord;
    thread.context = *pointers.ContextRecord;
    thread.context.ContextFlags &= ~0x40u; // what stands behind the context is not copied
}

// The system finds the handlers of guarded blocks by itself, but where the stack is used up or not
// the thread's own.
LONG passToGuard(ThreadFaults& thread, const EXCEPTION_POINTERS& pointers) {
    CONTEXT& context = *pointers.ContextRecord;
    const auto* stack = reinterpret_cast<const unsigned char*>(context.Rsp);
    const bool onRescue =
        stack >= thread.rescueStack && stack < thread.rescueStack + sizeof thread.rescueStack;
    const bool overflows = pointers.ExceptionRecord->ExceptionCode == kStackOverflow;
    if (thread.guard == nullptr || (!onRescue && !overflows))
        return EXCEPTION_CONTINUE_SEARCH;
    if (overflows)
        keepFault(thread, pointers);
    calmProcessor(context);
    enterRescue(context, overflows && !onRescue ? showOverflow : leaveGuard, thread);
    return EXCEPTION_CONTINUE_EXECUTION;
}

LONG passToTranslator(ThreadFaults& thread, const EXCEPTION_POINTERS& pointers) {
    CONTEXT& context = *pointers.ContextRecord;
    keepFault(thread, pointers);
    if (thread.record.ExceptionCode == kStackOverflow) {
        calmProcessor(context);
        enterRescue(context, translateOverflow, thread);
        return EXCEPTION_CONTINUE_EXECUTION;
    }
    const Taker taker = findTaker(thread, thread.context, true);
    if (taker == Taker::others)
        return EXCEPTION_CONTINUE_SEARCH;
    std::uint64_t returnAddress = context.Rip + 1; // the unwinder looks up the address in front
    if (taker == Taker::furtherOut) {
        const DWORD flags = context.ContextFlags;
        context = thread.start;
        context.ContextFlags = flags;
        returnAddress = context.Rip;
    }
    calmProcessor(context);
    enterTrampoline(context, returnAddress, thread);
    return EXCEPTION_CONTINUE_EXECUTION;
}

// On the stack of the fault, of which little may be left.
LONG CALLBACK onFault(EXCEPTION_POINTERS* pointers) {
    if (isMessage(pointers->ExceptionRecord->ExceptionCode))
        return EXCEPTION_CONTINUE_SEARCH;
    ThreadFaults* thread = threadFaults(false);
    if (thread == nullptr)
        return EXCEPTION_CONTINUE_SEARCH;
    if (thread->handsOn) {
        thread->handsOn = false;
        return EXCEPTION_CONTINUE_SEARCH;
    }
    const bool translates =
        thread->translator != nullptr && thread->guard == thread->translatorGuard;
    return translates ? passToTranslator(*thread, *pointers) : passToGuard(*thread, *pointers);
}

struct Installed {
    Installed() {
        // Other threads may be inside the handler, and their blocks of faults go by a hook of ours.
        stayLoaded();
        slot = ::TlsAlloc();
        m_handler = ::AddVectoredExceptionHandler(1, onFault);
    }
    ~Installed() {
        ::RemoveVectoredExceptionHandler(m_handler);
        ::TlsFree(slot);
        slot = TLS_OUT_OF_INDEXES;
    }
    Installed(const Installed&) = delete;
    Installed& operator=(const Installed&) = delete;

  private:
    void* m_handler;
};

void freeThreadFaults(void*) {
    if (slot == TLS_OUT_OF_INDEXES)
        return;
    if (void* thread = ::TlsGetValue(slot)) {
        ::TlsSetValue(slot, nullptr);
        ::VirtualFree(thread, 0, MEM_RELEASE);
    }
}

ThreadFaults* makeThreadFaults() {
    void* memory = ::VirtualAlloc(nullptr, sizeof(ThreadFaults), MEM_COMMIT, PAGE_READWRITE);
    if (memory == nullptr)
        return nullptr;
    if (!::TlsSetValue(slot, memory) || !callAtThreadEnd(freeThreadFaults)) {
        ::TlsSetValue(slot, nullptr);
        ::VirtualFree(memory, 0, MEM_RELEASE);
        return nullptr;
    }
    ULONG room = kRoomAfterOverflow;
    ::SetThreadStackGuarantee(&room);
    // Not cleared: fresh pages are zero, and most of them may never be used.
    return new (memory) ThreadFaults;
}

// The run-time keeps a translator of its own, for code of the other compiler on this thread.
sExceptionTranslator setInRunTime(sExceptionTranslator translator, sExceptionTranslator former) {
    using Set = sExceptionTranslator (*)(sExceptionTranslator);
    static const Set set = [] {
        const HMODULE runTime = ::GetModuleHandleA("msvcrt.dll");
        const char* name = "?_set_se_translator@@YAP6AXIPEAU_EXCEPTION_POINTERS@@@ZP6AXI0@Z@Z";
        return runTime != nullptr
                   ? reinterpret_cast<Set>(reinterpret_cast<void*>(::GetProcAddress(runTime, name)))
                   : nullptr;
    }();
    return set != nullptr ? set(translator) : former;
}

} // namespace

ThreadFaults* threadFaults(bool make) noexcept {
    if (make) {
        static const Installed installed;
    }
    if (slot == TLS_OUT_OF_INDEXES)
        return nullptr;
    const LastErrorKeeper keeper; // a successful TlsGetValue clears the last error
    auto* thread = static_cast<ThreadFaults*>(::TlsGetValue(slot));
    return thread == nullptr && make ? makeThreadFaults() : thread;
}

sExceptionTranslator setTranslator(sExceptionTranslator translator) noexcept {
    const LastErrorKeeper keeper;
    ThreadFaults* thread = threadFaults(translator != nullptr);
    if (thread == nullptr)
        return setInRunTime(translator, nullptr);
    const sExceptionTranslator former = thread->translator;
    thread->translator = translator;
    thread->translatorGuard = thread->guard;
    return setInRunTime(translator, former);
}

} // namespace platform
