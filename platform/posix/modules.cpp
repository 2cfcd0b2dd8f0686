// The list of modules, and the tool help and process status functions that tell of it.

#include "modules.h"

#include <elf.h>
#include <link.h>
#include <sys/auxv.h>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <new>

#include "platform/calls.h"
#include "platform/debugHelp.h"
#include "platform/thread.h"
#include "readMemory.h"
#include "systemTables.h"

namespace platform {

namespace {

constexpr std::uint64_t kPage = 4096;

struct Collection {
    std::vector<LoadedModule> modules;
    std::exception_ptr failure; // must not pass through the loader
};

void collect(const dl_phdr_info& info, std::vector<LoadedModule>& modules) {
    std::uint64_t low = ~std::uint64_t{0};
    std::uint64_t high = 0;
    for (int i = 0; i < info.dlpi_phnum; ++i) {
        const ElfW(Phdr)& segment = info.dlpi_phdr[i];
        if (segment.p_type != PT_LOAD)
            continue;
        const std::uint64_t start = info.dlpi_addr + segment.p_vaddr;
        low = std::min(low, start & ~(kPage - 1));
        high = std::max(high, (start + segment.p_memsz + kPage - 1) & ~(kPage - 1));
    }
    if (high <= low)
        return;
    const bool program = modules.empty();
    LoadedModule module = {info.dlpi_name, low, static_cast<std::uint32_t>(high - low), 0};
    if (program)
        module.entry = ::getauxval(AT_ENTRY);
    if (module.path.empty() && program) {
        char path[4096];
        module.path.assign(path, calls.executablePath(path, sizeof path));
    }
    modules.push_back(std::move(module));
}

int collectOne(dl_phdr_info* info, std::size_t, void* argument) {
    auto& collection = *static_cast<Collection*>(argument);
    try {
        collect(*info, collection.modules);
        return 0;
    } catch (...) {
        collection.failure = std::current_exception();
        return 1;
    }
}

void copyText(char* out, std::size_t size, const char* text) {
    const std::size_t kept = std::min(std::strlen(text), size - 1);
    std::memcpy(out, text, kept);
    out[kept] = '\0';
}

const char* baseName(const std::string& path) {
    return path.c_str() + path.rfind('/') + 1;
}

// ---- tool help

struct ModuleSnapshot {
    std::vector<LoadedModule> modules;
    std::size_t next = 0;
};

Snapshot createToolhelp32Snapshot(std::uint32_t flags, std::uint32_t process) {
    if (flags != kSnapModules || (process != 0 && process != processId())) {
        errno = EINVAL;
        return kNoSnapshot;
    }
    try {
        return new ModuleSnapshot{loadedModules()};
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
        return kNoSnapshot;
    }
}

std::int32_t module32Next(Snapshot handle, ModuleEntry32* entry) {
    auto& snapshot = *static_cast<ModuleSnapshot*>(handle);
    if (entry->size < sizeof *entry || snapshot.next >= snapshot.modules.size()) {
        errno = entry->size < sizeof *entry ? EINVAL : ENOENT;
        return 0;
    }
    const LoadedModule& module = snapshot.modules[snapshot.next++];
    *entry = {};
    entry->size = sizeof *entry;
    entry->moduleId = 1;
    entry->processId = processId();
    entry->base = reinterpret_cast<unsigned char*>(module.base);
    entry->imageSize = module.size;
    entry->module = entry->base;
    copyText(entry->name, sizeof entry->name, baseName(module.path));
    copyText(entry->path, sizeof entry->path, module.path.c_str());
    return 1;
}

std::int32_t module32First(Snapshot handle, ModuleEntry32* entry) {
    static_cast<ModuleSnapshot*>(handle)->next = 0;
    return module32Next(handle, entry);
}

// ---- process status; a module's handle is its base

std::int32_t enumProcessModules(ProcessHandle, ModuleHandle* out, std::uint32_t size,
                                std::uint32_t* needed) try {
    const std::vector<LoadedModule> modules = loadedModules();
    *needed = static_cast<std::uint32_t>(modules.size() * sizeof *out);
    const std::size_t count = std::min(modules.size(), size / sizeof *out);
    for (std::size_t i = 0; i < count; ++i)
        out[i] = reinterpret_cast<ModuleHandle>(modules[i].base);
    return 1;
} catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return 0;
}

// Calls `use` with the module of a handle.
template <class Use>
bool withModule(ModuleHandle handle, Use use) try {
    for (const LoadedModule& module : loadedModules())
        if (handle == nullptr || reinterpret_cast<ModuleHandle>(module.base) == handle) {
            use(module);
            return true;
        }
    errno = EINVAL;
    return false;
} catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return false;
}

std::uint32_t getModuleFileNameEx(ProcessHandle, ModuleHandle handle, char* out,
                                  std::uint32_t size) {
    const bool found = size > 0 && withModule(handle, [&](const LoadedModule& module) {
                           copyText(out, size, module.path.c_str());
                       });
    return found ? static_cast<std::uint32_t>(std::strlen(out)) : 0;
}

std::uint32_t getModuleBaseName(ProcessHandle, ModuleHandle handle, char* out, std::uint32_t size) {
    const bool found = size > 0 && withModule(handle, [&](const LoadedModule& module) {
                           copyText(out, size, baseName(module.path));
                       });
    return found ? static_cast<std::uint32_t>(std::strlen(out)) : 0;
}

std::int32_t getModuleInformation(ProcessHandle, ModuleHandle handle, ModuleInformation* out,
                                  std::uint32_t size) {
    if (size < sizeof *out) {
        errno = EINVAL;
        return 0;
    }
    return withModule(handle, [&](const LoadedModule& module) {
        *out = {reinterpret_cast<void*>(module.base), module.size,
                reinterpret_cast<void*>(module.entry)};
    });
}

// ---- the rest of what a report asks for

ProcessHandle currentProcess() {
    return reinterpret_cast<ProcessHandle>(std::intptr_t{-1});
}

void closeSnapshot(Snapshot snapshot) {
    delete static_cast<ModuleSnapshot*>(snapshot);
}

std::uint32_t versionSize(const char*, std::uint32_t*) {
    return 0;
}
std::int32_t versionBlock(const char*, std::uint32_t, std::uint32_t, void*) {
    return 0;
}
std::int32_t versionValue(const void*, const char*, void**, std::uint32_t*) {
    return 0;
}

} // namespace

std::vector<LoadedModule> loadedModules() {
    Collection collection;
    ::dl_iterate_phdr(collectOne, &collection);
    if (collection.failure)
        std::rethrow_exception(collection.failure);
    return std::move(collection.modules);
}

void* findToolHelp(const char* name) {
    static const SystemFunction functions[] = {
        {"CreateToolhelp32Snapshot", addressOf(createToolhelp32Snapshot)},
        {"Module32First", addressOf(module32First)},
        {"Module32Next", addressOf(module32Next)},
    };
    return findFunction(functions, name);
}

void* findProcessStatus(const char* name) {
    static const SystemFunction functions[] = {
        {"EnumProcessModules", addressOf(enumProcessModules)},
        {"GetModuleFileNameExA", addressOf(getModuleFileNameEx)},
        {"GetModuleBaseNameA", addressOf(getModuleBaseName)},
        {"GetModuleInformation", addressOf(getModuleInformation)},
    };
    return findFunction(functions, name);
}

constinit DebugCalls debugCalls = {currentProcess, readProcessMemory, closeSnapshot,
                                   versionSize,    versionBlock,      versionValue};

} // namespace platform
