/*
 * Log lines: printf-style functions that write one line to a log of the family.
 *
 * All of them may be called from any thread and at any time, but for a child that fork made and
 * while shutdown_logs runs (logfiles.h); a line is put together also while no log is open, and then
 * dropped.  A line is at most 2000 bytes with its header and line
 * feed; a longer one is cut and ends in "...\n".  Formats are those of raise.h.
 *
 * A line begins with
 *
 *   V: 21 Nov 26 (Sat) 10:40:30.123 (1234:5678:MARK): BANNER
 *
 * the letter of its kind, local time, process and thread numbers, the thread's mark (left out with
 * its colon while it is empty) and the thread's banner, with no blank behind it.  Nothing is
 * returned.  A format is never null; a null banner or mark is an empty one.
 *
 * The first line of a thread takes 4000 bytes from the heap, which stay with the
 * process; where they cannot be had a COSError is raised out of the call.
 *
 * `error` and the C library.  The C library of Linux has another function of that name, declared in
 * <error.h>, and a host that links the library keeps it: under the name `error` a linker finds that
 * one.  Ours is there in these ways:
 *
 *   vdreader_error   always, the same on every system
 *   error            a call in a file that includes this header, unless VDREADER_NO_ERROR_NAME is
 *                    defined in front of it.  In C++ both functions stand side by side and the
 *                    arguments decide.  In C only one can be declared: where <error.h> came first,
 *                    this header leaves its own out; <error.h> behind it does not compile.
 *   dlsym, GetProcAddress
 *                    "error" of the library
 *
 * On Linux a declaration of `error` written by hand calls the C library's.
 */
#ifndef VDREADER_LOG_H
#define VDREADER_LOG_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#include "vdreader/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- to the error log ---- */

/* Letter "E", and "Running PROGRAM: Error: " in front of the message. */
VDREADER_API void verror(const char* format, va_list arguments);
#ifdef VDREADER_LINKS_ERROR
VDREADER_API void error(const char* format, ...);
#endif

/* Letter "W", and "Running PROGRAM: Warning: ". */
VDREADER_API void warning(const char* format, ...);
VDREADER_API void vwarning(const char* format, va_list arguments);

/*
 * Letter "O", "Running PROGRAM: (FILE at LINE) " in front of the message and behind it the system's
 * last error as " OS error description: [NUMBER] [TEXT]."; it is read before anything else.  The
 * form without _ex takes file and line from place().  FILE is what stands behind the last \ or :.
 */
VDREADER_API void oserrori(const char* format, ...);
VDREADER_API void oserrori_ex(const char* file, int32_t line, const char* format, ...);

/* Letter "S", the same with the last socket error as "OS error description: TEXT.". */
VDREADER_API void socerrori(const char* format, ...);
VDREADER_API void socerrori_ex(const char* file, int32_t line, const char* format, ...);

/* ---- to the event log ---- */

/* Letter "V". */
VDREADER_API void event(const char* format, ...);
VDREADER_API void vevent(const char* format, va_list arguments);

/* Written if the debug level is not below the absolute value of `level`.  The letter is the low
 * byte of `level` plus "0": level 2 gives "2". */
VDREADER_API void devent(int32_t level, const char* format, ...);
VDREADER_API void vdevent(int32_t level, const char* format, va_list arguments);

/* Letter "F"; written through to the file before the call returns. */
VDREADER_API void exc_h_print(const char* format, ...);

/* ---- to the net log ---- */

/* The message alone: no header and no line feed. */
VDREADER_API void netevent(const char* format, ...);

/* ---- decoration of the calling thread's lines ---- */

/* Keeps at most 256 characters of the text as the banner. */
VDREADER_API void setbanner(const char* text);

/* Shows the caller's text as the banner instead, without a copy, until unsetbanner_ptr. */
VDREADER_API void setbanner_ptr(const char* text);
VDREADER_API void unsetbanner_ptr(void);

/* Keeps at most 7 characters of the text as the thread's mark.  Raises what getsmark raises. */
VDREADER_API void util_set_mark(const char* text);

/* The thread's mark: 8 bytes that may be written, empty at first.  They stay with the process.  A
 * COSError is raised where the thread has no mark yet and the bytes cannot be had. */
VDREADER_API char* getsmark(void);

/* ---- process ---- */

/* Sets the debug level, 0 at start, unless the level is negative.  The former level. */
VDREADER_API int32_t SetDebugLevel(int32_t level);
VDREADER_API int32_t GetDebugLevel(void);

/* Appends the text and a line feed to what getappinfo returns.  std::bad_alloc is raised where the
 * memory for it cannot be had; part of it may stand there then. */
VDREADER_API void appendappinfo(const char* text);

/* All that was appended, "" at first.  Good until the next appendappinfo of any thread. */
VDREADER_API const char* getappinfo(void);

#ifdef __cplusplus
}
#endif

/* ---- error, for hosts ---- */

static inline void vdreader_error(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    verror(format, arguments);
    va_end(arguments);
}

#if !defined(VDREADER_LINKS_ERROR) && !defined(VDREADER_NO_ERROR_NAME) && \
    (defined(__cplusplus) || !defined(_ERROR_H))
static inline void error(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    verror(format, arguments);
    va_end(arguments);
}
#endif

#endif
