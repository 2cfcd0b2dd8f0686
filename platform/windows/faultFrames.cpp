// Who takes a fault, seen from outside: the frames between the fault and the handlers are walked as
// the system would walk them.
//
// The vectored handler comes before them all.  Functions that test memory by reading it
// (IsBadReadPtr, lstrlenA) have structured handlers of their own, which must get their faults.

#include "faultState.h"

#include <cstring>

#include "../src/exceptionTable.h"

extern "C" EXCEPTION_DISPOSITION __gxx_personality_seh0(PEXCEPTION_RECORD, void*, PCONTEXT, void*);

namespace platform {

namespace {

constexpr int kMostFrames = 1 << 20; // a stack of 64 MiB in the smallest frames
// What cleanups, handlers and the translator with its reports need of a stack.
constexpr std::uint64_t kOverflowRoom = std::uint64_t{512} << 10;

const NT_TIB& threadInformation() {
    const NT_TIB* information = nullptr;
    asm("movq %%gs:0x30, %0" : "=r"(information)); // the compiler warns of the system's own way
    return *information;
}

// Imported functions are reached through "jmp [rip + distance]".
const void* behindImport(const void* function) {
    const auto* code = static_cast<const unsigned char*>(function);
    if (code[0] != 0xFF || code[1] != 0x25)
        return function;
    std::int32_t distance = 0;
    std::memcpy(&distance, code + 2, sizeof distance);
    const void* target = nullptr;
    std::memcpy(&target, code + 6 + distance, sizeof target);
    return target;
}

const void* handlerIn(const char* module) {
    const HMODULE handle = ::GetModuleHandleA(module);
    return handle != nullptr
               ? reinterpret_cast<const void*>(::GetProcAddress(handle, "__C_specific_handler"))
               : nullptr;
}

struct Handlers {
    const void* ofTheSystem = handlerIn("ntdll.dll");
    const void* ofTheRunTime = handlerIn("msvcrt.dll");
    const void* ofCpp = behindImport(reinterpret_cast<const void*>(&__gxx_personality_seh0));

    bool isStructured(const void* handler) const {
        return handler == ofTheSystem || handler == ofTheRunTime;
    }
};
const Handlers handlers;

// The data of __C_specific_handler.
struct ScopeTable {
    DWORD count;
    struct {
        DWORD begin, end, filter, target; // target 0: a block that runs in any case
    } scopes[1];
};

bool structuredHandlerTakes(const void* data, std::uint64_t offset) {
    const auto& table = *static_cast<const ScopeTable*>(data);
    for (DWORD i = 0; i < table.count; ++i)
        if (offset >= table.scopes[i].begin && offset < table.scopes[i].end &&
            table.scopes[i].target != 0)
            return true;
    return false;
}

// A function without unwind data has no frame: its return address is on top of the stack.
bool leaveLeaf(CONTEXT& walked) {
    const NT_TIB& thread = threadInformation();
    if (walked.Rsp + sizeof(std::uint64_t) > reinterpret_cast<std::uintptr_t>(thread.StackBase) ||
        walked.Rsp < reinterpret_cast<std::uintptr_t>(thread.StackLimit))
        return false;
    walked.Rip = *reinterpret_cast<const std::uint64_t*>(walked.Rsp);
    walked.Rsp += sizeof(std::uint64_t);
    return walked.Rip != 0;
}

// The stack probe pushes two registers and has no unwind data.
void leaveStackProbe(CONTEXT& walked) {
    const auto* stack = reinterpret_cast<const std::uint64_t*>(walked.Rsp);
    int pushed = 0;
    DWORD64 base = 0;
    while (pushed < 4 && ::RtlLookupFunctionEntry(stack[pushed], &base, nullptr) == nullptr)
        ++pushed;
    if (pushed == 4)
        pushed = 0;
    walked.Rip = stack[pushed];
    walked.Rsp += 8 * static_cast<std::uint64_t>(pushed + 1);
}

struct Frame {
    RUNTIME_FUNCTION* function;
    DWORD64 image;
    const void* handler;
    void* data;
};

// Steps `walked` to its caller; `frame` tells of the function that was left.
void leaveFrame(CONTEXT& walked, Frame& frame) {
    DWORD64 established = 0;
    const PEXCEPTION_ROUTINE handler =
        ::RtlVirtualUnwind(UNW_FLAG_EHANDLER, frame.image, walked.Rip, frame.function, &walked,
                           &frame.data, &established, nullptr);
    frame.handler =
        handler != nullptr ? behindImport(reinterpret_cast<const void*>(handler)) : nullptr;
}

// Where the emulation of the system on Linux keeps the handlers of its own functions; the system
// itself leaves the word empty.
bool hiddenHandlerIsNearer(std::uint64_t stackPointer) {
    const auto hidden = reinterpret_cast<std::uintptr_t>(threadInformation().ExceptionList);
    return hidden != 0 && hidden != ~std::uintptr_t{0} && hidden < stackPointer;
}

TableAnswer answerOf(const Frame& frame, std::uint64_t instruction) {
    if (frame.handler != handlers.ofCpp) // of another language: exceptions may be at home there
        return TableAnswer::catches;
    return exceptionTableAnswer(frame.data,
                                instruction - frame.image - frame.function->BeginAddress);
}

} // namespace

Taker findTaker(ThreadFaults& thread, const CONTEXT& from, bool isFault) noexcept {
    CONTEXT& walked = thread.walked;
    walked = from;
    const auto stackEnd = reinterpret_cast<std::uintptr_t>(threadInformation().StackBase);
    Taker taker = Taker::here;
    for (int i = 0; i < kMostFrames; ++i) {
        Frame frame = {};
        const std::uint64_t instruction = i == 0 && isFault ? walked.Rip : walked.Rip - 1;
        frame.function = ::RtlLookupFunctionEntry(walked.Rip, &frame.image, nullptr);
        if (frame.function == nullptr) {
            if (!leaveLeaf(walked))
                return Taker::others;
            continue;
        }
        const std::uint64_t next = walked.Rip;
        leaveFrame(walked, frame);
        if (hiddenHandlerIsNearer(walked.Rsp))
            return Taker::others;
        if (handlers.isStructured(frame.handler)) {
            if (structuredHandlerTakes(frame.data, next - frame.image))
                return Taker::others;
        } else if (frame.handler != nullptr) {
            const TableAnswer answer = answerOf(frame, instruction);
            if (answer == TableAnswer::catches)
                return taker;
            if (answer == TableAnswer::silent) {
                thread.start = walked;
                taker = Taker::furtherOut;
            }
        }
        if (walked.Rip == 0 || walked.Rsp >= stackEnd)
            return Taker::others;
    }
    return Taker::others;
}

bool leaveOverflow(ThreadFaults& thread) noexcept {
    const NT_TIB& information = threadInformation();
    const auto end = reinterpret_cast<std::uintptr_t>(information.StackBase);
    const auto limit = reinterpret_cast<std::uintptr_t>(information.StackLimit);
    // A small stack has less to give.
    const std::uint64_t room =
        (end - limit) / 2 < kOverflowRoom ? (end - limit) / 2 : kOverflowRoom;
    CONTEXT& walked = thread.walked;
    walked = thread.context;
    while (walked.Rsp < limit + room) {
        Frame frame = {};
        frame.function = ::RtlLookupFunctionEntry(walked.Rip, &frame.image, nullptr);
        if (frame.function == nullptr)
            leaveStackProbe(walked);
        else
            leaveFrame(walked, frame);
        if (walked.Rip == 0 || walked.Rsp >= end)
            return false;
    }
    thread.start = walked;
    return true;
}

} // namespace platform
