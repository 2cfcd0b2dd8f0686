// Formatting of report lines into buffers of fixed size.

#pragma once

#include <cstdarg>

#include "dw_util/format.h"

namespace velt::callstack {

// As snprintf into the buffer; what does not fit is cut, the text is terminated.
template <std::size_t Size>
void printText(char (&out)[Size], const char* format, ...) noexcept {
    std::va_list arguments;
    va_start(arguments, format);
    if (formatText(out, Size, format, arguments) < 0)
        out[0] = '\0';
    va_end(arguments);
}

} // namespace velt::callstack
