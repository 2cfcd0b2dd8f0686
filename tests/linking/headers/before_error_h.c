/* A C program cannot have both declarations: this one does not compile. */
#include "vdreader/log.h"

#include <error.h>
