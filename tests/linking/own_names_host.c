/*
 * A host with functions of its own under names of the library, which it exports as well.  Calls
 * inside the library stay inside.
 *
 *   own_names_host LIBRARY
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdarg.h>

#include "capture.h"

static int calls;

void error(const char* format, ...);
void error(const char* format, ...) {
    (void)format;
    ++calls;
}
void verror(const char* format, va_list arguments);
void verror(const char* format, va_list arguments) {
    (void)format;
    (void)arguments;
    ++calls;
}

int main(int argc, char** argv) {
    void* const library = argc == 2 ? dlopen(argv[1], RTLD_NOW | RTLD_GLOBAL) : NULL;
    void (*theirs)(const char* format, ...) = NULL;
    void* address;
    CHECK(library != NULL, dlerror());
    if (!library)
        return 1;
    /* Seen from outside, the host's own function comes first. */
    address = dlsym(RTLD_DEFAULT, "error");
    memcpy(&theirs, &address, sizeof theirs);
    CHECK(theirs == error, "");
    address = dlsym(library, "error");
    memcpy(&theirs, &address, sizeof theirs);
    CHECK(theirs != NULL && theirs != error, "");
    if (theirs)
        theirs("line %d", 1); /* goes through verror */
    CHECK(calls == 0, "");
    return failures ? 1 : 0;
}
