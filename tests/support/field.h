// Text fields of fixed size.

#pragma once

#include <cstring>

// Puts a literal with its terminator into a field that has room for it.
template <std::size_t Size, std::size_t TextSize>
void setField(char (&field)[Size], const char (&text)[TextSize]) {
    static_assert(TextSize <= Size);
    std::memcpy(field, text, TextSize);
}
