// From a change record of the current data to the buffer that a callback sees.

#pragma once

#include "Classes/classModel.h"
#include "vdreader/curdata.hpp"
#include "vdreader/dynparams.h"

// Fills all of `out` from the record and the codes that it was joined to.  The record lies whole in
// the iterator's page.  A mask of more than 16 bytes is left out, after the platform's failure for
// broken contracts.
void fillDynParams(const ENC_DATA& record, const JoinCode& classCode, const JoinCode& secCode,
                   sDynParams& out);
