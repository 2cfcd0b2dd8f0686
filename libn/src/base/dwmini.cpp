// The raising allocator.

#include "libn/dwmini.h"

#include <cstring>

#include "libn/memTraceTable.h"
#include "vdreader/log.h"
#include "vdreader/memtrace.h"
#include "vdreader/raise.h"

namespace {

// Above this many bytes a block is worth a line in the event log.
constexpr std::size_t kBigChunk = 3'000'000;

const char* behindLastBackslash(const char* file) {
    const char* last = std::strrchr(file, '\\');
    return last != nullptr ? last + 1 : file;
}

} // namespace

void* dwminiAlloc(std::size_t size, const char* file, int line, bool zeroFill) {
    void* block = memTraceMalloc(size, file, line);
    if (block == nullptr)
        dwraiseos_ex("libn/src/dwmini", 151, "Can't allocate memory at %s:%d. Required size %zu.",
                     behindLastBackslash(file), line, size);
    if (size > kBigChunk) {
        try {
            event("Allocating big chunk of memory(%zu) at %s:%d", size, behindLastBackslash(file),
                  line);
        } catch (...) {
            dwminiFree(&block);
            throw;
        }
    }
    if (zeroFill)
        std::memset(block, 0, size);
    return block;
}

void dwminiFree(void** block) {
    if (block == nullptr || *block == nullptr)
        return;
    memTraceFree(*block, nullptr, 0);
    *block = nullptr;
}
