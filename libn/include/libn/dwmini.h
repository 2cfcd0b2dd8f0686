// Plain blocks that the memory tracer sees, and that are raised about when they cannot be had.

#pragma once

#include <cstddef>

// A block of `size` bytes, filled with zeroes if `zeroFill` is set; never null.  `file` and `line`
// are the place to charge; `file` must live as long as the process.  Raises a COSError "Can't
// allocate memory at %s:%d. Required size %zu."; a block of more than 3,000,000 bytes is noted in
// the event log.  Any thread.
void* dwminiAlloc(std::size_t size, const char* file, int line, bool zeroFill);

// Frees `*block` and sets it to null.  Null in either place is allowed.  Any thread.
void dwminiFree(void** block);
