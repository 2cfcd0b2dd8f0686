// The modules of this process: the program, its shared objects and what the kernel maps for it.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace platform {

struct LoadedModule {
    std::string path;    // the program's own is asked for
    std::uint64_t base;  // of its first page
    std::uint32_t size;  // up to the end of its last page
    std::uint64_t entry; // where the program begins, 0 for others
};

// In the loader's order, the program first.  Takes the loader's lock.  May raise std::bad_alloc.
std::vector<LoadedModule> loadedModules();

} // namespace platform
