// Facts about views of files; the calls themselves stand in the table of calls.h.

#pragma once

#include <cstdint>

#include "platform/calls.h"

namespace platform {

// Offsets of views are multiples of this many bytes (dwAllocationGranularity of GetSystemInfo; the
// page size on Linux).  Fetched anew at each call.
std::uint64_t allocationGranularity();

} // namespace platform
