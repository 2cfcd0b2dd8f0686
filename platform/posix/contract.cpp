// What stands in for the C library's invalid-parameter handler.

#include <cstdio>
#include <cstdlib>

#include "../src/system.h"

namespace platform::system {

void invalidParameter() {
    std::fputs("vdreader: invalid parameter\n", stderr);
    std::fflush(stderr);
    std::abort();
}

} // namespace platform::system
