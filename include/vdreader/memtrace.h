/*
 * Allocation entry points that the memory tracer sees.
 *
 * Until somebody starts the tracer, the first three count their calls and pass on to the C library,
 * and the other two do nothing.  `file` and `line` are the place to charge; only the
 * pointer to `file` is kept, so the text must live as long as the process.  Blocks are those of the
 * library's C run-time: what comes from here goes back here.  Any thread.
 *
 * While tracing is on (vdreader/tracing.h), calls wait for each other, and those that enter raise
 * std::bad_alloc where the tracer's tables find no memory.  Nothing is held for the caller then: a
 * block of memTraceMalloc is free again, and so is the one that memTraceRealloc was given, which
 * the caller neither uses nor frees any more.
 */
#ifndef VDREADER_MEMTRACE_H
#define VDREADER_MEMTRACE_H

#include <stddef.h>
#include <stdint.h>

#include "vdreader/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* As malloc: null on failure. */
VDREADER_API void* memTraceMalloc(size_t size, const char* file, int32_t line);

/* As free; null is allowed.  File and line are not used. */
VDREADER_API void memTraceFree(void* block, const char* file, int32_t line);

/* As realloc: null on failure, with the old block left as it was.  While tracing is on, a size of 0
 * frees the block, with null as the result. */
VDREADER_API void* memTraceRealloc(void* block, size_t size, const char* file, int32_t line);

/* Enters memory that was not allocated here, and takes it out again.  The pointer. */
VDREADER_API void* memTraceAddPtr(void* pointer, size_t size, const char* file, int32_t line);
VDREADER_API void* memTraceDelPtr(void* pointer);

#ifdef __cplusplus
}
#endif

#endif
