/* The whole C interface of the library.  C++ callers find the error classes in errors.hpp and the
 * descriptors in descriptors.hpp. */
#ifndef VDREADER_VDREADER_H
#define VDREADER_VDREADER_H

#include "vdreader/alerts.h"
#include "vdreader/classes.h"
#include "vdreader/dynparams.h"
#include "vdreader/futures.h"
#include "vdreader/log.h"
#include "vdreader/logfiles.h"
#include "vdreader/memtrace.h"
#include "vdreader/postmortem.h"
#include "vdreader/raise.h"
#include "vdreader/readers.h"
#include "vdreader/securities.h"
#include "vdreader/tracing.h"

#endif
