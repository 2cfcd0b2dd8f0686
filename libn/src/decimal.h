// Decimal numbers in front of a text.

#pragma once

#include <cstdint>
#include <cstdlib>
#include <limits>

// The number behind any blanks, 0 where there is none, the nearest 32-bit number where it is out of
// range.
inline std::int32_t decimalOf(const char* text) {
    using Limits = std::numeric_limits<std::int32_t>;
    const long long number = std::strtoll(text, nullptr, 10);
    if (number > Limits::max())
        return Limits::max();
    return number < Limits::min() ? Limits::min() : static_cast<std::int32_t>(number);
}
