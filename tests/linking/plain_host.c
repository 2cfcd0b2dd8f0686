/* A C host that calls error() of log.h by its plain name; linked and run as linked_host.c is. */
#define _GNU_SOURCE
#include <dlfcn.h>

#include "capture.h"
#include "vdreader/log.h"

static void callOurs(void) {
    error("host %d", 1);
}

int main(int argc, char** argv) {
    const int standIn = argc > 1 && strcmp(argv[1], "--stand-in") == 0;
    const char* text = captured(callOurs);
    const unsigned int* const count = (unsigned int*)dlsym(RTLD_DEFAULT, "error_message_count");
    CHECK(strcmp(text, standIn ? "verror: host 1" : "") == 0, text);
    CHECK(count != NULL && *count == 0, "");
    return failures ? 1 : 0;
}
