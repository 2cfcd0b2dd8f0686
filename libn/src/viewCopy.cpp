// The pointers behind the copies of views.

#include "libn/viewCopy.h"

#include <cstring>

namespace libn {

void* (*volatile viewCopyCall)(void*, const void*, std::size_t) = std::memcpy;
void* (*volatile viewFillCall)(void*, int, std::size_t) = std::memset;

} // namespace libn
