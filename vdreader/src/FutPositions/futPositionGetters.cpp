// Getters of futures positions.  None tests its record.

#include "FutPositions/getterRows.h"
#include "FutPositions/sFutPosition.h"
#include "vdreader/futures.h"

#define VDREADER_DEFINE_GETTER(getter, Result, Record, field) \
  Result getter(const Record* record) {                       \
    return record->field;                                     \
  }

extern "C" {
VDREADER_FUTPOSITION_GETTERS(VDREADER_DEFINE_GETTER)
}
