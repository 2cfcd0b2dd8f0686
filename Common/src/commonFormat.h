// The formats that most lines of the logs have: texts and whole numbers without flags, widths and
// precisions.  They are printed here, at a fraction of what the run-time takes.

#pragma once

#include <cstdarg>
#include <cstddef>

// The variable arguments of a function, to be handed on by reference.
struct Arguments {
    std::va_list list;
};

// As vsnprintf for a size above 0, for %d %i %u %x, alone or with l, ll or z, %s, %c and %%.
// Negative where the format holds anything else: then `out` holds nothing of use and `arguments`
// are used up in part.
int formatCommon(char* out, std::size_t size, const char* format, Arguments& arguments) noexcept;
