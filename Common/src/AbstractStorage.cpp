// The operations of a storage that a storage does not have: each tells its tag.
//
// Deliberate: the tags are out of sequence and repeat.  Whoever reads the logs of the family looks
// an operation up by its tag and its kind of storage.

#include "vdreader/curdata.hpp"
#include "vdreader/raise.h"

namespace {

[[noreturn]] void illegalCall(int line, const char* text) {
    dwraise_ex("Common/include/AbstractStorage", line, "%s", text);
}

} // namespace

#define VDREADER_ILLEGAL(operation, tag)        \
  void TAbstractStorage::operation() {          \
    illegalCall(__LINE__, "ILLEGAL CALL " tag); \
  }

VDREADER_ILLEGAL(operation1, "2")
VDREADER_ILLEGAL(operation2, "1")
VDREADER_ILLEGAL(operation4, "4")
VDREADER_ILLEGAL(operation5, "3")
VDREADER_ILLEGAL(operation9, "Seq")
VDREADER_ILLEGAL(operation10, "Seq1")
VDREADER_ILLEGAL(operation11, "8")
VDREADER_ILLEGAL(operation12, "9")
VDREADER_ILLEGAL(operation13, "10")
VDREADER_ILLEGAL(operation14, "11")
VDREADER_ILLEGAL(operation15, "12")
VDREADER_ILLEGAL(operation16, "21")
VDREADER_ILLEGAL(operation17, "22")
VDREADER_ILLEGAL(operation18, "23")
VDREADER_ILLEGAL(operation19, "24")
VDREADER_ILLEGAL(operation20, "14")
VDREADER_ILLEGAL(operation21, "15")
VDREADER_ILLEGAL(operation22, "15")
VDREADER_ILLEGAL(operation23, "16")
VDREADER_ILLEGAL(operation24, "17")
VDREADER_ILLEGAL(operation25, "18")
VDREADER_ILLEGAL(operation26, "25")
VDREADER_ILLEGAL(operation28, "21")
VDREADER_ILLEGAL(operation29, "22")
VDREADER_ILLEGAL(operation30, "23")
VDREADER_ILLEGAL(operation31, "24")

#undef VDREADER_ILLEGAL

TAbstractStorage::TAbstractStorage() = default;
TAbstractStorage::~TAbstractStorage() = default;
