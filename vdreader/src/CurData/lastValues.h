// From a slot of the current data to the buffer of the latest values.

#pragma once

#include <cstddef>
#include <vector>

#include "Classes/valueForm.h"
#include "vdreader/dynparams.h"

// Copies the values of the parameters in `mask`: those that are doubles in `form` to `out.doubles`,
// the low halves of its integers to `out.longs`.  Nothing else of `out` is written.  `values` are
// the 128 values of a slot, in live memory and of any alignment.
using ValuesCopy = void (*)(const char* values, const ParamSet& mask, const ValueForm& form,
                            sLastDynParams& out);

// The forms of the copy that this processor has, the fastest first.
std::vector<ValuesCopy> usableCopies();

// The fastest.
extern const ValuesCopy copyLastValues;
