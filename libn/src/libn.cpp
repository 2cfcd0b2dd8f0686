// Raising of failures that were put together field by field.

#include "dw_util/raise.h"
#include "libn/raiseText.h"

namespace libn {

void raiseText(const std::ostringstream& stream) {
    // Deliberate: one fixed place, and the text as the format.  Handlers of the family recognise
    // these failures by the place, and texts in the field carry what the conversions made of a "%".
    raiseWithZeroes("libn/src/libn", 135, stream.str().c_str());
}

} // namespace libn
