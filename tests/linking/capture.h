/* What a call writes to the standard error stream, and the count of checks that failed. */
#ifndef VDREADER_TESTS_CAPTURE_H
#define VDREADER_TESTS_CAPTURE_H

#include <stdio.h>
#include <string.h>
#include <unistd.h>

static int failures;

static inline void check(int holds, const char* what, int line, const char* text) {
    if (!holds) {
        printf("failed in line %d: %s (text: '%s')\n", line, what, text);
        ++failures;
    }
}

/* CHECK(condition, text): counts a failure and shows the text beside it. */
#define CHECK(condition, text) check((condition) != 0, #condition, __LINE__, text)

/* The bytes that `call` wrote, at most 4095 of them; good until the next capture. */
static inline const char* captured(void (*call)(void)) {
    static char text[4096];
    FILE* const file = tmpfile();
    const int former = dup(STDERR_FILENO);
    size_t length = 0;
    if (file && former >= 0 && dup2(fileno(file), STDERR_FILENO) >= 0) {
        call();
        fflush(stderr);
        dup2(former, STDERR_FILENO);
        rewind(file);
        length = fread(text, 1, sizeof text - 1, file);
    } else {
        CHECK(0, "no temporary file");
    }
    text[length] = '\0';
    if (former >= 0)
        close(former);
    if (file)
        fclose(file);
    return text;
}

static inline int endsWith(const char* text, const char* end) {
    const size_t length = strlen(text);
    const size_t endLength = strlen(end);
    return length >= endLength && strcmp(text + length - endLength, end) == 0;
}

#endif
