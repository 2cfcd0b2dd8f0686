// The instance of the traced base class that leaves the library.

#include "memutil.h"

template class memutil::Redefine_NewDelete_<13>;
