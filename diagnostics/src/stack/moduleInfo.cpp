// What the debug help library knows of one module, and the version of its file.

#include <cstdlib>
#include <cstring>
#include <memory>

#include "diagnostics/stackLibraries.h"
#include "diagnostics/walkerState.h"
#include "platform/error.h"

namespace velt::callstack {

namespace {

constexpr std::uint32_t kNotEnoughMemory = 8;
constexpr std::uint32_t kDllInitFailed = 1114;

// The library may write more than the record holds; newer ones know longer forms.
constexpr std::size_t kScratchSize = 4096;

struct Released {
    void operator()(void* block) const { std::free(block); }
};
using Block = std::unique_ptr<void, Released>;

// Asks for the form of `size` bytes through the scratch block.
bool askFor(std::uint32_t size, platform::ProcessHandle process, std::uint64_t address,
            void* scratch, platform::ModuleInfo64& record) {
    record.size = size;
    std::memcpy(scratch, &record, size);
    if (stackLibraries().debugHelp.symGetModuleInfo64(process, address, scratch) == 0)
        return false;
    std::memcpy(&record, scratch, size);
    record.size = size;
    return true;
}

bool failWith(std::uint32_t code) {
    platform::setLastError(code);
    return false;
}

} // namespace

bool moduleInfoV3Usable = true;

bool StackWalker::findModuleInfo(platform::ProcessHandle process, std::uint64_t address,
                                 platform::ModuleInfo64& record) {
    std::memset(&record, 0, sizeof record);
    const DbgHelpLibrary& library = stackLibraries().debugHelp;
    if (library.handle == nullptr || library.symGetModuleInfo64 == nullptr)
        return failWith(kDllInitFailed);
    const Block scratch(std::malloc(kScratchSize));
    if (scratch == nullptr)
        return failWith(kNotEnoughMemory);
    if (moduleInfoV3Usable) {
        if (askFor(platform::kModuleInfoLong, process, address, scratch.get(), record))
            return true;
        // Deliberate: one address without a module ends the long form for the whole process.  The
        // names of symbol files are then missing in every later report, as readers know them.
        moduleInfoV3Usable = false;
    }
    if (askFor(platform::kModuleInfoShort, process, address, scratch.get(), record))
        return true;
    return failWith(kDllInitFailed);
}

const char* symbolTypeText(std::uint32_t symType) noexcept {
    static constexpr const char* kTexts[] = {"-nosymbols-", "COFF", "CV",  "PDB",    "-exported-",
                                             "-deferred-",  "SYM",  "DIA", "Virtual"};
    return symType < std::size(kTexts) ? kTexts[symType] : "";
}

std::uint64_t fileVersion(const char* path) noexcept {
    std::uint32_t handle = 0;
    const std::uint32_t size = platform::debugCalls.versionSize(path, &handle);
    if (size == 0)
        return 0;
    const Block block(std::malloc(size));
    void* value = nullptr;
    std::uint32_t valueSize = 0;
    if (block == nullptr ||
        platform::debugCalls.versionBlock(path, handle, size, block.get()) == 0 ||
        platform::debugCalls.versionValue(block.get(), "\\", &value, &valueSize) == 0)
        return 0;
    std::uint32_t words[4];
    if (value == nullptr || valueSize < sizeof words)
        return 0;
    std::memcpy(words, value, sizeof words);
    return std::uint64_t{words[2]} << 32 | words[3];
}

} // namespace velt::callstack
