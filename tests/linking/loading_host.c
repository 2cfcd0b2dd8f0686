/*
 * A host that loads the library at run time.
 *
 *   loading_host LIBRARY STUB THIRD_PARTY
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <error.h>

#include "capture.h"

static void (*ours)(const char* format, ...);
static void (*report)(void);

static void callTheirs(void) {
    error(0, 0, "host %d", 1);
}
static void callOurs(void) {
    ours("host %d", 2);
}

static const char* fileOf(void* address) {
    Dl_info info = {0};
    return address && dladdr(address, &info) && info.dli_fname ? info.dli_fname : "";
}

static void checkLibrary(const char* file) {
    void* const library = dlopen(file, RTLD_NOW | RTLD_GLOBAL);
    void* address;
    const char* text;
    CHECK(library != NULL, dlerror());
    if (!library)
        return;
    address = dlsym(library, "error");
    CHECK(strcmp(fileOf(address), file) == 0, fileOf(address));
    CHECK(address == dlvsym(library, "error", "VDREADER_1"), "");
    CHECK(strstr(fileOf(dlsym(RTLD_DEFAULT, "error")), "libc.so") != NULL, "");

    memcpy(&ours, &address, sizeof ours);
    text = captured(callOurs);
    CHECK(strcmp(text, "") == 0, text);
    CHECK(error_message_count == 0, "");
}

/* The stub has no code: loading it has to fail, and say so. */
static void checkStub(const char* file) {
    void* const stub = dlopen(file, RTLD_NOW);
    const char* const reason = stub ? "loaded" : dlerror();
    CHECK(strstr(reason, "cannot be dlopen") != NULL, reason);
}

static void checkTheirs(const char* thirdParty) {
    void* const library = dlopen(thirdParty, RTLD_NOW);
    void* const address = library ? dlsym(library, "reportOfThirdParty") : NULL;
    const char* text = captured(callTheirs);
    CHECK(endsWith(text, ": host 1\n"), text);
    CHECK(address != NULL, dlerror());
    if (!address)
        return;
    memcpy(&report, &address, sizeof report);
    text = captured(report);
    CHECK(endsWith(text, ": third party\n"), text);
    CHECK(error_message_count == 2, "");
}

int main(int argc, char** argv) {
    if (argc != 4)
        return 2;
    checkLibrary(argv[1]);
    checkStub(argv[2]);
    checkTheirs(argv[3]);
    return failures ? 1 : 0;
}
