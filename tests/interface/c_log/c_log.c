/* Every log function from plain C before anything is initialised.  The last line is all that the
 * process may write. */

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "vdreader/vdreader.h"

static int failures;

static void check(int holds, const char* what) {
    if (!holds) {
        printf("failed: %s\n", what);
        ++failures;
    }
}
#define CHECK(condition) check((condition) != 0, #condition)

static void logLists(const char* format, ...) {
    void (*const forms[])(const char*, va_list) = {verror, vwarning, vevent};
    va_list arguments;
    size_t i;
    for (i = 0; i < sizeof forms / sizeof *forms; ++i) {
        va_start(arguments, format);
        forms[i](format, arguments);
        va_end(arguments);
    }
    va_start(arguments, format);
    vdevent(2, format, arguments);
    va_end(arguments);
}

static void logLines(void) {
    error("%d of %s", 1, "error");
    vdreader_error("%d of %s", 2, "error");
    warning("%d of %s", 3, "warning");
    oserrori("%d of %s", 4, "oserrori");
    oserrori_ex("file.c", 5, "%s", "oserrori_ex");
    socerrori("%d of %s", 6, "socerrori");
    socerrori_ex("file.c", 7, "%s", "socerrori_ex");
    event("%d of %s", 8, "event");
    devent(0, "%d of %s", 9, "devent");
    devent(-2, "%d of %s", 10, "devent");
    exc_h_print("%d of %s", 11, "exc_h_print");
    netevent("%d of %s\n", 12, "netevent");
    logLists("%d of %s", 13, "lists");
}

static void checkDecoration(void) {
    char* const mark = getsmark();
    CHECK(strcmp(mark, "") == 0);
    util_set_mark("123456789");
    CHECK(strcmp(mark, "1234567") == 0);
    CHECK(getsmark() == mark);
    setbanner("banner ");
    logLines();
    setbanner_ptr("other banner ");
    logLines();
    unsetbanner_ptr();
    logLines();
}

static void checkProcess(void) {
    CHECK(GetDebugLevel() == 0);
    CHECK(SetDebugLevel(2) == 0);
    CHECK(SetDebugLevel(-7) == 2);
    CHECK(GetDebugLevel() == 2);
    logLines();
    CHECK(strcmp(getappinfo(), "") == 0);
    appendappinfo("host");
    appendappinfo("1.0");
    CHECK(strcmp(getappinfo(), "host\n1.0\n") == 0);
}

int main(void) {
    logLines();
    checkDecoration();
    checkProcess();
    if (failures == 0)
        printf("the log functions work\n");
    return failures != 0;
}
