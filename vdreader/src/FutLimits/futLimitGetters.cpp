// Getters of futures limits.  None tests its record.

#include "FutLimits/getterRows.h"
#include "FutLimits/sFutLimit.h"
#include "vdreader/futures.h"

#define VDREADER_DEFINE_GETTER(getter, Result, Record, field) \
  Result getter(const Record* record) {                       \
    return record->field;                                     \
  }

extern "C" {
VDREADER_FUTLIMIT_GETTERS(VDREADER_DEFINE_GETTER)
}
