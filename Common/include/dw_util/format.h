// printf-style formatting that reads alike on every system.
//
// On top of the run-time's own conversions: %p prints 16 upper-case hexadecimal digits; the length
// modifiers I64, I32 and I are understood; %n takes its argument and stores nothing; a width or
// precision of more than four digits counts as 8192.

#pragma once

#include <cstdarg>
#include <cstddef>

// As vsnprintf: at most `size` bytes with the terminator; the length that the whole text has,
// negative on a failure of the run-time.  `out` is always terminated where size is not 0.
int formatText(char* out, std::size_t size, const char* format, std::va_list arguments) noexcept;

// The same for a text that stands where a format is expected, without arguments: every conversion
// finds a zero.  A conversion that the run-time does not know stands as it is.
int formatWithZeroes(char* out, std::size_t size, const char* format) noexcept;
