// Looks for the heap's and the loader's functions on a stack, without unwinding it: that takes the
// loader's lock itself.

#include "runTimeLocks.h"

#include <dlfcn.h>
#include <link.h>
#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "readMemory.h"

namespace platform {

namespace {

struct Range {
    std::uint64_t begin;
    std::uint64_t end;
};

// The outermost functions: whatever they call returns into them.  First those of the heap.
constexpr const char* kFunctions[] = {
    "malloc",      "free",   "calloc",  "realloc", "memalign", "aligned_alloc",  "posix_memalign",
    "malloc_trim", "dlopen", "dlclose", "dlsym",   "dladdr",   "dl_iterate_phdr"};
constexpr std::size_t kCount = sizeof kFunctions / sizeof *kFunctions;
constexpr std::size_t kHeapCount = 8;

struct Ranges {
    Range of[kCount] = {};

    Ranges() {
        for (std::size_t i = 0; i < kCount; ++i)
            of[i] = find(kFunctions[i]);
    }

    static Range find(const char* name) {
        void* const function = ::dlsym(RTLD_DEFAULT, name);
        Dl_info info = {};
        const ElfW(Sym)* symbol = nullptr;
        if (function == nullptr ||
            ::dladdr1(function, &info, const_cast<void**>(reinterpret_cast<const void**>(&symbol)),
                      RTLD_DL_SYMENT) == 0 ||
            symbol == nullptr)
            return {0, 0};
        const auto begin = reinterpret_cast<std::uint64_t>(function);
        return {begin, begin + symbol->st_size};
    }

    bool hold(std::uint64_t address) const {
        for (const Range& range : of)
            if (address >= range.begin && address < range.end)
                return true;
        return false;
    }

    // A function's first byte is what pointers to it hold, and no call returns to it.
    bool holdReturn(std::uint64_t address) const { return hold(address) && hold(address - 1); }
};

// Found while this library loads: later the loader's lock may be what is waited for.
const Ranges ranges;

} // namespace

bool mayHoldRunTimeLock(const ucontext_t& context, std::uintptr_t top) noexcept {
    constexpr std::size_t kWords = 1024;
    const greg_t* const registers = context.uc_mcontext.gregs;
    if (ranges.hold(static_cast<std::uint64_t>(registers[REG_RIP])))
        return true;
    const auto bottom = static_cast<std::uint64_t>(registers[REG_RSP]);
    std::uint64_t words[kWords];
    std::size_t size = sizeof words;
    if (top >= bottom)
        size = std::min<std::size_t>(size, top - bottom);
    std::uint32_t bytes = 0;
    readProcessMemory(nullptr, bottom, words, static_cast<std::uint32_t>(size), &bytes);
    for (std::size_t i = 0; i < bytes / sizeof *words; ++i)
        if (ranges.holdReturn(words[i]))
            return true;
    return false;
}

bool isHeapFunction(std::uintptr_t address) noexcept {
    for (std::size_t i = 0; i < kHeapCount; ++i)
        if (address != 0 && ranges.of[i].begin == address)
            return true;
    return false;
}

} // namespace platform
