// Exception records for the fault signals, with the codes and parameters that Windows gives to the
// same faults of the processor.

#include "faultState.h"

namespace platform {

namespace {

// The processor's numbers of faults.
constexpr greg_t kBreakpointTrap = 3;
constexpr greg_t kGeneralProtection = 13;
// Bits of a page fault's error code.
constexpr greg_t kWriteAccess = 2;
constexpr greg_t kFetchAccess = 16;

constexpr std::uint32_t kAccessViolation = 0xC0000005;
constexpr std::uint32_t kInPageError = 0xC0000006;
constexpr std::uint32_t kPrivilegedInstruction = 0xC0000096;
constexpr std::uint64_t kEndOfFileStatus = 0xC0000011;

// How far below the stack an overflow may touch: functions with large frames skip pages.
constexpr std::uintptr_t kOverflowReach = std::uintptr_t{1} << 20;

std::uint64_t accessOf(const mcontext_t& machine) {
    const greg_t error = machine.gregs[REG_ERR];
    if ((error & kFetchAccess) != 0)
        return 8;
    return (error & kWriteAccess) != 0 ? 1 : 0;
}

// Whether the instruction is one that only the kernel may execute; behind its prefixes.
bool isPrivileged(std::uint64_t instruction) {
    const auto* code = reinterpret_cast<const unsigned char*>(instruction);
    for (int i = 0; i < 4; ++i, ++code)
        if (*code != 0x66 && *code != 0x67 && *code != 0xF2 && *code != 0xF3 &&
            (*code & 0xF0) != 0x40)
            break;
    const auto isIn = [](unsigned char first, unsigned char byte, unsigned char last) {
        return first <= byte && byte <= last;
    };
    if (*code != 0x0F) // hlt, cli and sti, in and out with their string forms
        return *code == 0xF4 || isIn(0xFA, *code, 0xFB) || isIn(0xE4, *code, 0xE7) ||
               isIn(0xEC, *code, 0xEF) || isIn(0x6C, *code, 0x6F);
    const unsigned char second = code[1]; // descriptor tables, caches, control registers, msr
    return isIn(0x00, second, 0x01) || second == 0x06 || isIn(0x08, second, 0x09) ||
           isIn(0x20, second, 0x23) || second == 0x30 || second == 0x32;
}

bool isOverflow(std::uintptr_t address, std::uintptr_t stackPointer, const AddressRange& stack) {
    const std::uintptr_t end = stack.low + kOverflowRoom;
    return stack.high != 0 && stackPointer < end && stackPointer + kOverflowReach > stack.low &&
           address < end && address + kOverflowReach > stack.low;
}

void describeBadAddress(sExceptionRecord& record, const siginfo_t& info, const mcontext_t& machine,
                        const AddressRange& stack) {
    const auto instruction = static_cast<std::uint64_t>(machine.gregs[REG_RIP]);
    if (machine.gregs[REG_TRAPNO] == kGeneralProtection) {
        // The processor tells no address; an address outside its range reads as all ones.
        if (isPrivileged(instruction)) {
            record.code = kPrivilegedInstruction;
            return;
        }
        record.code = kAccessViolation;
        record.parameterCount = 2;
        record.parameters[1] = ~std::uint64_t{0};
        return;
    }
    const auto address = reinterpret_cast<std::uintptr_t>(info.si_addr);
    const auto stackPointer = static_cast<std::uintptr_t>(machine.gregs[REG_RSP]);
    record.code = isOverflow(address, stackPointer, stack) ? kStackOverflow : kAccessViolation;
    record.parameterCount = 2;
    record.parameters[0] = accessOf(machine);
    record.parameters[1] = address;
}

void describeBadPage(sExceptionRecord& record, const siginfo_t& info, const mcontext_t& machine) {
    if (info.si_code == BUS_ADRALN) {
        record.code = 0x80000002;
        return;
    }
    record.code = kInPageError;
    record.parameterCount = 3;
    record.parameters[0] = accessOf(machine);
    record.parameters[1] = reinterpret_cast<std::uintptr_t>(info.si_addr);
    record.parameters[2] = kEndOfFileStatus;
}

std::uint32_t arithmeticCode(int reason) {
    switch (reason) {
        case FPE_INTDIV:
            return 0xC0000094;
        case FPE_INTOVF:
            return 0xC0000095;
        case FPE_FLTDIV:
            return 0xC000008E;
        case FPE_FLTOVF:
            return 0xC0000091;
        case FPE_FLTUND:
            return 0xC0000093;
        case FPE_FLTRES:
            return 0xC000008F;
        default:
            return 0xC0000090;
    }
}

} // namespace

sExceptionRecord recordOf(const siginfo_t& info, const ucontext_t& context,
                          const AddressRange& stack) noexcept {
    const mcontext_t& machine = context.uc_mcontext;
    auto instruction = static_cast<std::uintptr_t>(machine.gregs[REG_RIP]);
    sExceptionRecord record = {};
    switch (info.si_signo) {
        case SIGSEGV:
            describeBadAddress(record, info, machine, stack);
            break;
        case SIGBUS:
            describeBadPage(record, info, machine);
            break;
        case SIGFPE:
            record.code = arithmeticCode(info.si_code);
            break;
        case SIGILL:
            record.code = 0xC000001D;
            break;
        default: {
            const bool steps = info.si_code == TRAP_TRACE || info.si_code == TRAP_HWBKPT;
            record.code = steps ? 0x80000004 : 0x80000003;
            // The processor stands behind the breakpoint by now.
            if (machine.gregs[REG_TRAPNO] == kBreakpointTrap)
                --instruction;
        }
    }
    record.address = reinterpret_cast<void*>(instruction);
    return record;
}

} // namespace platform
