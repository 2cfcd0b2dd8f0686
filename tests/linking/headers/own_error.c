/* The host has another function of that name. */
#define VDREADER_NO_ERROR_NAME
#include "vdreader/log.h"

static int error(void) {
    return 1;
}

int callBoth(void);
int callBoth(void) {
    vdreader_error("text %d", 2);
    return error();
}
