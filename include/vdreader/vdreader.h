/* The whole C interface of the library.  C++ callers find the error classes in errors.hpp and the
 * descriptors in descriptors.hpp. */
#ifndef VDREADER_VDREADER_H
#define VDREADER_VDREADER_H

#include "vdreader/classes.h"
#include "vdreader/futures.h"
#include "vdreader/raise.h"
#include "vdreader/readers.h"
#include "vdreader/securities.h"

#endif
