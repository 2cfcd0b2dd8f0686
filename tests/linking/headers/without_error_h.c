/* Both names are ours. */
#include "vdreader/log.h"

void callOurs(void);
void callOurs(void) {
    error("text %d", 1);
    vdreader_error("text %d", 2);
}
