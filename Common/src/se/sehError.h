// The exception that stands for a structured one.

#pragma once

#include "vdreader/errors.hpp"
#include "vdreader/postmortem.h"

// Its code is that of the record, its line 0, its file empty, and its text
// "Exception 0xCODE occurred at address 0xADDRESS. Parameters: 0xVALUE ..." with 8 hexadecimal
// digits at least for code and address, 16 for each value.  Of more than 15 parameters the first 15
// count.  Takes nothing from the heap.
CSEHError sehErrorOf(const sExceptionRecord& record) noexcept;
