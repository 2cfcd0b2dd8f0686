/* A component that knows nothing of the library and reports through the C library's error(). */

#include <error.h>

void reportOfThirdParty(void);
void reportOfThirdParty(void) {
    error(0, 0, "third %s", "party");
}
