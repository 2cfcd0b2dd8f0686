/* The C library's declaration comes first: ours keeps its other name alone. */
#include <error.h>

#include "vdreader/log.h"

void callBoth(int status);
void callBoth(int status) {
    error(status, 0, "text %d", 1);
    vdreader_error("text %d", 2);
}
