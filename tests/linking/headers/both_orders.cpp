// Both declarations, ours first; compiled with EARLY defined, the C library's first.
#ifdef EARLY
#  include <error.h>
#endif

#include "vdreader/log.h"

#include <error.h>

void callBoth(int status) {
    error("text %d", 1);
    error(nullptr);
    error(0, 0, "text %d", 2);
    error(status, 0, "text %d", 3);
    vdreader_error("text %d", 4);
}
