// The functions of the debug help library on Linux, over the walk, the modules and their symbols.
//
// The look-ups of one process at a time, this one; callers keep reports apart.

#include "platform/debugHelp.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "dwarf.h"
#include "modules.h"
#include "stackWalk.h"
#include "symbols.h"
#include "systemTables.h"
#include "unwind.h"

namespace platform {

namespace {

constexpr std::uint32_t kNameOnly = 0x1000;
constexpr std::size_t kCutPath = sizeof(ModuleEntry32::path) - 1;

// Never destroyed: reports are made until the process is gone.
constinit Symbols* session = nullptr;
constinit std::uint32_t options = 0;

void copyText(char* out, std::size_t size, const char* text) {
    const std::size_t kept = std::min(std::strlen(text), size - 1);
    std::memcpy(out, text, kept);
    out[kept] = '\0';
}

// As the debug help library: what is not there is told as a missing module.
std::int32_t notFound() {
    errno = ENOENT;
    return 0;
}

std::int32_t symInitialize(ProcessHandle, const char*, std::int32_t) try {
    if (session == nullptr)
        session = Symbols::begin().release();
    if (session == nullptr)
        errno = ENOMEM;
    return session != nullptr;
} catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return 0;
}

std::int32_t symCleanup(ProcessHandle) {
    if (session == nullptr)
        return notFound();
    delete session;
    session = nullptr;
    return 1;
}

std::uint32_t symGetOptions() {
    return options;
}
std::uint32_t symSetOptions(std::uint32_t wanted) {
    return options = wanted;
}

// Unwinding finds its tables by itself.
void* symFunctionTableAccess64(ProcessHandle, std::uint64_t) {
    return nullptr;
}

std::uint64_t symGetModuleBase64(ProcessHandle, std::uint64_t address) {
    const SymbolModule* const module = session != nullptr ? session->moduleAt(address) : nullptr;
    return module != nullptr ? module->base : 0;
}

// The record of tool help cuts long paths; the loader knows the whole one.
std::string wholePath(const char* path, std::uint64_t base) {
    if (std::strlen(path) >= kCutPath)
        for (const LoadedModule& module : loadedModules())
            if (module.base == base)
                return module.path;
    return path;
}

std::uint64_t symLoadModule64(ProcessHandle, void*, const char* path, const char* name,
                              std::uint64_t base, std::uint32_t size) try {
    if (session == nullptr || path == nullptr)
        return static_cast<std::uint64_t>(notFound());
    const std::string whole = wholePath(path, base);
    errno = 0; // a module that is there already is no failure
    return session->add(whole.c_str(), name != nullptr ? name : "", base, size) ? base : 0;
} catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return 0;
}

std::int32_t symGetModuleInfo64(ProcessHandle, std::uint64_t address, void* record) {
    auto& info = *static_cast<ModuleInfo64*>(record);
    const std::uint32_t size = info.size;
    if (size != kModuleInfoLong && size != kModuleInfoShort) {
        errno = EINVAL;
        return 0;
    }
    const SymbolModule* const module = session != nullptr ? session->moduleAt(address) : nullptr;
    if (module == nullptr)
        return notFound();
    std::memset(record, 0, size);
    info.size = size;
    info.base = module->base;
    info.imageSize = module->size;
    info.symType = module->symType;
    copyText(info.moduleName, sizeof info.moduleName, module->name.c_str());
    copyText(info.imageName, sizeof info.imageName, module->path.c_str());
    copyText(info.loadedImageName, sizeof info.loadedImageName, module->path.c_str());
    if (size == kModuleInfoLong)
        copyText(info.loadedPdbName, sizeof info.loadedPdbName, module->debugFile.c_str());
    return 1;
}

std::int32_t symGetSymFromAddr64(ProcessHandle, std::uint64_t address, std::uint64_t* displacement,
                                 SymbolRecord* out) {
    FoundSymbol symbol = {};
    if (session == nullptr || !session->symbolAt(lookUpAddress(address), symbol))
        return notFound();
    out->address = symbol.address;
    *displacement = address - symbol.address;
    if (out->maxNameLength > 0)
        copyText(out->name, out->maxNameLength, symbol.name);
    return 1;
}

std::int32_t symGetLineFromAddr64(ProcessHandle, std::uint64_t address, std::uint32_t* displacement,
                                  LineRecord* out) {
    FoundLine line = {};
    if (session == nullptr || !session->lineAt(lookUpAddress(address), line))
        return notFound();
    out->number = line.number;
    out->file = const_cast<char*>(line.file);
    out->address = line.address;
    *displacement = static_cast<std::uint32_t>(address - line.address);
    return 1;
}

// A name that is not decorated comes as it is.
std::uint32_t unDecorateSymbolName(const char* name, char* out, std::uint32_t size,
                                   std::uint32_t flags) {
    if (size == 0)
        return 0;
    if (const std::size_t length = demangledName(name, out, size, (flags & kNameOnly) != 0))
        return static_cast<std::uint32_t>(length);
    copyText(out, size, name);
    return static_cast<std::uint32_t>(std::strlen(out));
}

} // namespace

void* findDebugHelp(const char* name) {
    static const SystemFunction functions[] = {
        {"SymInitialize", addressOf(symInitialize)},
        {"SymCleanup", addressOf(symCleanup)},
        {"StackWalk64", addressOf(stackWalk64)},
        {"SymGetOptions", addressOf(symGetOptions)},
        {"SymSetOptions", addressOf(symSetOptions)},
        {"SymFunctionTableAccess64", addressOf(symFunctionTableAccess64)},
        {"SymGetLineFromAddr64", addressOf(symGetLineFromAddr64)},
        {"SymGetModuleBase64", addressOf(symGetModuleBase64)},
        {"SymGetModuleInfo64", addressOf(symGetModuleInfo64)},
        {"SymGetSymFromAddr64", addressOf(symGetSymFromAddr64)},
        {"UnDecorateSymbolName", addressOf(unDecorateSymbolName)},
        {"SymLoadModule64", addressOf(symLoadModule64)},
    };
    // A host without one of the two libraries has no debug help at all.
    if (unwindCalls() == nullptr || dwarfCalls() == nullptr)
        return nullptr;
    return findFunction(functions, name);
}

} // namespace platform
