// The frames of a context, one after the other: what stands behind StackWalk64 on Linux.

#pragma once

#include <cstdint>

#include "platform/debugHelp.h"

namespace platform {

// See debugHelp.h.  The first call for a frame record, one without a mark of this function in
// `reserved`, unwinds the stack, 4096 frames at a time, before anything else of a report is done;
// each call then gives the next frame.  A record whose walk another has replaced fails.  Callers
// keep reports apart.
std::int32_t stackWalk64(std::uint32_t machine, ProcessHandle process, void* thread,
                         StackFrame64* frame, void* context, MemoryReader readMemory,
                         FunctionTableAccess functionTable, ModuleBaseReader moduleBase,
                         void* translate);

// Where to look for the symbol and the line of a frame of the present walk: a return address
// belongs to the call in front of it, which may be the last instruction of its function.  Other
// addresses stay as they are.
std::uint64_t lookUpAddress(std::uint64_t programCounter);

} // namespace platform
