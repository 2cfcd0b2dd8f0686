/*
 * Raising of failures: printf-style functions that throw one of the classes of errors.hpp.
 *
 * None of them returns.  The text is what the caller formatted, cut without a marker at 4094
 * characters.  `file` is kept from behind its last \ or :, at most 511 characters; null counts as
 * empty.  The forms without _ex take file and line from the last place() of the calling thread, or
 * an empty file and line 0.
 *
 * Formats are those of printf.  %p gives 16 upper-case hexadecimal digits on every system, I64, I32
 * and I are understood as length modifiers, and %n stores nothing.
 *
 * Threads: any; nothing is shared.  Nothing but the thrown object itself is taken from the heap.
 *
 * C callers: the exception passes through them, so they are compiled with -fexceptions.
 */
#ifndef VDREADER_RAISE_H
#define VDREADER_RAISE_H

#include <stdint.h>

#include "vdreader/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Notes the source place of the calling thread for the forms without _ex: `line`, and at most 300
 * characters of `file` as it stands.  The system's last error stays as it was.
 */
VDREADER_API void place(const char* file, int32_t line);

/* CError with code 0. */
VDREADER_API VDREADER_NORETURN void dwraise(const char* format, ...);
VDREADER_API VDREADER_NORETURN void dwraise_ex(const char* file, int32_t line, const char* format,
                                               ...);

/* CError with the given code. */
VDREADER_API VDREADER_NORETURN void dwraisec(int32_t code, const char* format, ...);
VDREADER_API VDREADER_NORETURN void dwraisec_ex(const char* file, int32_t line, int32_t code,
                                                const char* format, ...);

/*
 * COSError with the text "(%s at %d): %s OS error description is '%s'." of file, line, message and
 * the system's text for its last error (errno on Linux), "unknown error" where it has none.  The
 * code stays 0.
 */
VDREADER_API VDREADER_NORETURN void dwraiseos(const char* format, ...);
VDREADER_API VDREADER_NORETURN void dwraiseos_ex(const char* file, int32_t line, const char* format,
                                                 ...);

/* CSocError with the text "(%s at %d): %s %s.", likewise for the last socket error (errno on
 * Linux). */
VDREADER_API VDREADER_NORETURN void dwraisesoc(const char* format, ...);
VDREADER_API VDREADER_NORETURN void dwraisesoc_ex(const char* file, int32_t line,
                                                  const char* format, ...);

#ifdef __cplusplus
}
#endif

#endif
