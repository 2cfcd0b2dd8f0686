// Libraries at run time on Linux: shared objects, and tables of this layer under the names of
// libraries that only Windows has.

#include "platform/library.h"

#include <dlfcn.h>
#include <strings.h>
#include <cstdlib>
#include <cstring>

#include "systemTables.h"

namespace platform {

namespace {

struct SystemLibrary {
    const char* name;
    SystemFinder finders[2]; // one after the other, null: no more
};

constexpr SystemLibrary kSystemLibraries[] = {
    {"dbghelp.dll", {findDebugHelp, findDumpWriter}},
    {"kernel32.dll", {findToolHelp, findThreadControl}},
    {"psapi.dll", {findProcessStatus, nullptr}},
};

const SystemLibrary* systemLibrary(const char* name) {
    for (const SystemLibrary& library : kSystemLibraries)
        if (::strcasecmp(library.name, name) == 0)
            return &library;
    return nullptr;
}

const SystemLibrary* systemLibraryOf(LibraryHandle handle) {
    for (const SystemLibrary& library : kSystemLibraries)
        if (&library == handle)
            return &library;
    return nullptr;
}

LibraryHandle handleOf(const SystemLibrary& library) {
    return const_cast<SystemLibrary*>(&library);
}

LibraryHandle load(const char* name) {
    if (const SystemLibrary* const library = systemLibrary(name))
        return handleOf(*library);
    return *name != '\0' ? ::dlopen(name, RTLD_LAZY | RTLD_LOCAL) : nullptr;
}

LibraryHandle loaded(const char* name) {
    if (const SystemLibrary* const library = systemLibrary(name))
        return handleOf(*library);
    void* const handle = *name != '\0' ? ::dlopen(name, RTLD_LAZY | RTLD_NOLOAD) : nullptr;
    // The look-up alone must not hold the object; whoever loaded it does.
    if (handle != nullptr)
        ::dlclose(handle);
    return handle;
}

void* symbol(LibraryHandle handle, const char* name) {
    const SystemLibrary* const library = systemLibraryOf(handle);
    if (library == nullptr)
        return ::dlsym(handle, name);
    for (const SystemFinder finder : library->finders)
        if (finder != nullptr)
            if (void* const found = finder(name))
                return found;
    return nullptr;
}

void release(LibraryHandle handle) {
    if (systemLibraryOf(handle) == nullptr)
        ::dlclose(handle);
}

std::size_t environment(const char* name, char* out, std::size_t size) {
    const char* const value = std::getenv(name);
    const std::size_t length = value != nullptr ? std::strlen(value) : 0;
    // As the system's own call: what does not fit is not copied, and its size is told.
    if (length >= size)
        return length + 1;
    std::memcpy(out, value != nullptr ? value : "", length);
    out[length] = '\0';
    return length;
}

} // namespace

void* findFunction(const SystemFunction* first, const SystemFunction* end,
                   const char* name) noexcept {
    for (; first != end; ++first)
        if (std::strcmp(first->name, name) == 0)
            return first->address;
    return nullptr;
}

constinit LibraryCalls libraryCalls = {load, loaded, symbol, release, environment};

} // namespace platform
