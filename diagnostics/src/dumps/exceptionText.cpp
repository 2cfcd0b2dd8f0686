// The line that describes an exception in the logs.

#include <algorithm>
#include <iomanip>

#include "diagnostics/crashDumps.h"
#include "libn/FieldText.h"
#include "platform/fault.h"

std::string exceptionText(sExceptionPointers* pointers) {
    if (pointers == nullptr)
        return {};
    const sExceptionRecord& record = *pointers->record;
    const platform::AddressPlace place = platform::placeOfAddress(record.address);
    libn::FieldText text;
    text << std::hex << std::uppercase << std::setfill('0');
    text << "Exception 0x" << record.code << " occurred at address 0x" << std::setw(16)
         << reinterpret_cast<std::uintptr_t>(record.address);
    text << " (" << std::setw(2) << place.section << ':' << std::setw(8) << place.offset << ' '
         << place.module << ") params:";
    const std::uint32_t count = std::min<std::uint32_t>(record.parameterCount, 15);
    for (std::uint32_t i = 0; i < count; ++i)
        text << (i == 0 ? "" : ",") << " 0x" << std::setw(8) << record.parameters[i];
    return text.str();
}
