/*
 * A host that links the library and uses the C library's error() beside ours.
 *
 *   linked_host [--stand-in] [THIRD_PARTY]
 *
 * With --stand-in the process runs on stand_in.c, which tells what reached it; the library itself
 * writes nothing, since no log is open.  THIRD_PARTY is a shared object that uses error(), too.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <error.h>

#include "capture.h"
#include "vdreader/log.h"

/* What is exported as `error`, by its version. */
__asm__(".symver exported_error, error@VDREADER_1");
void exported_error(const char* format, ...);

static void callTheirs(void) {
    error(0, 0, "host %d", 1);
}
static void callOurs(void) {
    vdreader_error("host %d", 2);
}
static void callExported(void) {
    exported_error("host %d", 3);
}

static void checkThirdParty(const char* file) {
    void* const library = dlopen(file, RTLD_NOW);
    void* const address = library ? dlsym(library, "reportOfThirdParty") : NULL;
    void (*report)(void) = NULL;
    const char* text;
    CHECK(address != NULL, dlerror());
    if (!address)
        return;
    memcpy(&report, &address, sizeof report);
    text = captured(report);
    CHECK(endsWith(text, ": third party\n"), text);
    CHECK(error_message_count == 2, "");
}

int main(int argc, char** argv) {
    const int standIn = argc > 1 && strcmp(argv[1], "--stand-in") == 0;
    const char* text = captured(callTheirs);
    CHECK(endsWith(text, ": host 1\n"), text);
    CHECK(error_message_count == 1, "");

    text = captured(callOurs);
    CHECK(strcmp(text, standIn ? "verror: host 2" : "") == 0, text);
    text = captured(callExported);
    CHECK(strcmp(text, standIn ? "error: host 3" : "") == 0, text);
    CHECK(error_message_count == 1, "");

    if (argc > 1 + standIn)
        checkThirdParty(argv[1 + standIn]);
    return failures ? 1 : 0;
}
