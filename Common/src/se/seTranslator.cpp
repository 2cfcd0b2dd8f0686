// Structured exceptions become exceptions of the family: the translator, and the numbers under
// which the sibling service knows the codes.

#include <algorithm>
#include <iterator>

#include "platform/fault.h"
#include "se/sehError.h"
#include "vdreader/log.h"
#include "vdreader/postmortem.h"

namespace {

// An RPC server that cannot be reached: every call of one may meet it, and nothing is broken here.
constexpr unsigned int kRpcServerUnavailable = 1723;

struct FamilyNumber {
    std::uint32_t code;
    std::uint32_t number;
};
constexpr FamilyNumber kNumbers[] = {
    {0xC0000005, 60000}, // access violation
    {0x80000002, 60001}, // datatype misalignment
    {0x80000003, 60002}, // breakpoint
    {0x80000004, 60003}, // single step
    {0xC000008C, 60004}, // array bounds exceeded
    {0xC000008D, 60005}, // float denormal operand
    {0xC000008E, 60006}, // float divide by zero
    {0xC000008F, 60007}, // float inexact result
    {0xC0000090, 60008}, // float invalid operation
    {0xC0000091, 60009}, // float overflow
    {0xC0000092, 60010}, // float stack check
    {0xC0000093, 60011}, // float underflow
    {0xC0000094, 60012}, // integer divide by zero
    {0xC0000095, 60013}, // integer overflow
    {0xC0000096, 60014}, // privileged instruction
    {0xC0000006, 60015}, // in-page error
    {0xC000001D, 60016}, // illegal instruction
    {0xC0000025, 60017}, // noncontinuable exception
    {0xC00000FD, 60018}, // stack overflow
    {0xC0000026, 60019}, // invalid disposition
    {0x80000001, 60020}, // guard page
    {0xC0000008, 60021}, // invalid handle
};

// How the sibling service takes a notice: who hears of it, what kind of code and notice it is.
constexpr std::uint32_t kDestination = 20;
constexpr std::uint32_t kCodeOfAnException = 0x20000;
constexpr std::uint16_t kKindOfNotice = 5;

} // namespace

std::uint32_t convert_error(std::uint32_t code) {
    const auto* found = std::find_if(std::begin(kNumbers), std::end(kNumbers),
                                     [code](const FamilyNumber& row) { return row.code == code; });
    return found != std::end(kNumbers) ? found->number : code & 0xffff;
}

void seh_translator(unsigned int code, sExceptionPointers* pointers) {
    const sExceptionRecord& record = *pointers->record;
    if (code == kRpcServerUnavailable) {
        warning("RPC error 0x%08X", kRpcServerUnavailable);
    } else {
        ExcFilterI(pointers);
        SendSvctlError(kDestination, (convert_error(code) & 0xffff) | kCodeOfAnException,
                       kKindOfNotice, 0, 0, 1, nullptr);
    }
    throw sehErrorOf(record);
}

sExceptionTranslator util_set_se_translator(sExceptionTranslator translator) {
    return platform::setTranslator(translator);
}
