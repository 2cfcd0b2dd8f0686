// Raising inside the library; the exported family is in vdreader/raise.h.

#pragma once

#include "vdreader/errors.hpp"
#include "vdreader/raise.h"

// Raises a CError whose text is `format` with every conversion finding a zero: for texts that come
// from elsewhere and stand in the place of a format.
[[noreturn]] void raiseWithZeroes(const char* file, int line, const char* format);
