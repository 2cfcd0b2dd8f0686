// Copies of texts into fields of fixed size.

#pragma once

#include <cstddef>
#include <cstring>

// Copies at most Size - 1 characters and terminates.  A null text counts as empty.
template <std::size_t Size>
void copyCut(char (&to)[Size], const char* from) noexcept {
    const std::size_t length = from != nullptr ? strnlen(from, Size - 1) : 0;
    std::memcpy(to, from != nullptr ? from : "", length);
    to[length] = '\0';
}
