/* Stands in for the library when a host runs, and shows which of the two functions was called. */

#include <stdarg.h>
#include <stdio.h>

void verror(const char* format, va_list arguments);
void verror(const char* format, va_list arguments) {
    fputs("verror: ", stderr);
    vfprintf(stderr, format, arguments);
}

void error(const char* format, ...);
void error(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    fputs("error: ", stderr);
    vfprintf(stderr, format, arguments);
    va_end(arguments);
}
