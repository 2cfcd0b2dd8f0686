// expect: banned-call
// expect: banned-call
// expect: banned-call
// expect: banned-call
#include <cstdio>

int fill(char* to, const char* from) {
    std::strcpy(to, from);
    sprintf(to, "%d", atoi(from));
    return rand();
}
