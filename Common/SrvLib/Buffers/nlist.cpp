// The list of mapped pages.

#include "Buffers/nlist.h"

template class ServantsLibrary::TNList<FileWorkLibrary::TMappedPage*, 10>;
