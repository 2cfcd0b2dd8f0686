// Libraries at run time on Windows.

#include "platform/library.h"

#include <windows.h>

namespace platform {

namespace {

LibraryHandle load(const char* name) {
    return ::LoadLibraryA(name);
}
LibraryHandle loaded(const char* name) {
    return ::GetModuleHandleA(name);
}
void* symbol(LibraryHandle library, const char* name) {
    return reinterpret_cast<void*>(::GetProcAddress(static_cast<HMODULE>(library), name));
}
void release(LibraryHandle library) {
    ::FreeLibrary(static_cast<HMODULE>(library));
}
std::size_t environment(const char* name, char* out, std::size_t size) {
    return ::GetEnvironmentVariableA(name, out, static_cast<DWORD>(size));
}

} // namespace

constinit LibraryCalls libraryCalls = {load, loaded, symbol, release, environment};

} // namespace platform
