// What a stack report asks of Windows beside the libraries that it looks up, and the proof that
// this layer's records are the system's.

#include "platform/debugHelp.h"

#include <windows.h>

#include <dbghelp.h>
#include <psapi.h>
#include <tlhelp32.h>

namespace platform {

static_assert(sizeof(StackFrame64) == sizeof(STACKFRAME64));
static_assert(offsetof(StackFrame64, frame) == offsetof(STACKFRAME64, AddrFrame));
static_assert(offsetof(StackFrame64, reserved) == offsetof(STACKFRAME64, Reserved));
static_assert(offsetof(ModuleInfo64, symType) == offsetof(IMAGEHLP_MODULE64, SymType));
static_assert(offsetof(ModuleInfo64, moduleName) == offsetof(IMAGEHLP_MODULE64, ModuleName));
static_assert(offsetof(ModuleInfo64, loadedImageName) ==
              offsetof(IMAGEHLP_MODULE64, LoadedImageName));
static_assert(offsetof(ModuleInfo64, loadedPdbName) == offsetof(IMAGEHLP_MODULE64, LoadedPdbName));
static_assert(kSymbolHead == sizeof(IMAGEHLP_SYMBOL64));
static_assert(offsetof(SymbolRecord, name) == offsetof(IMAGEHLP_SYMBOL64, Name));
static_assert(sizeof(LineRecord) == sizeof(IMAGEHLP_LINE64));
static_assert(offsetof(LineRecord, file) == offsetof(IMAGEHLP_LINE64, FileName));
static_assert(sizeof(ModuleEntry32) == sizeof(MODULEENTRY32));
static_assert(offsetof(ModuleEntry32, path) == offsetof(MODULEENTRY32, szExePath));
static_assert(sizeof(ModuleInformation) == sizeof(MODULEINFO));

namespace {

ProcessHandle currentProcess() {
    return ::GetCurrentProcess();
}

std::int32_t readMemory(ProcessHandle process, std::uint64_t address, void* out, std::uint32_t size,
                        std::uint32_t* done) {
    SIZE_T read = 0;
    const BOOL whole =
        ::ReadProcessMemory(process, reinterpret_cast<const void*>(address), out, size, &read);
    *done = static_cast<std::uint32_t>(read);
    return whole;
}

void closeSnapshot(Snapshot snapshot) {
    ::CloseHandle(snapshot);
}

// A function of the library of file versions, which is loaded when one is first asked for.
template <class Function>
Function versionFunction(const char* name) {
    static const HMODULE library = ::LoadLibraryA("version.dll");
    return library != nullptr ? reinterpret_cast<Function>(
                                    reinterpret_cast<void*>(::GetProcAddress(library, name)))
                              : nullptr;
}

std::uint32_t versionSize(const char* path, std::uint32_t* handle) {
    using Call = DWORD(WINAPI*)(const char*, std::uint32_t*);
    static const auto call = versionFunction<Call>("GetFileVersionInfoSizeA");
    return call != nullptr ? call(path, handle) : 0;
}
std::int32_t versionBlock(const char* path, std::uint32_t handle, std::uint32_t size, void* out) {
    using Call = BOOL(WINAPI*)(const char*, DWORD, DWORD, void*);
    static const auto call = versionFunction<Call>("GetFileVersionInfoA");
    return call != nullptr ? call(path, handle, size, out) : 0;
}
std::int32_t versionValue(const void* block, const char* name, void** value, std::uint32_t* size) {
    using Call = BOOL(WINAPI*)(const void*, const char*, void**, std::uint32_t*);
    static const auto call = versionFunction<Call>("VerQueryValueA");
    return call != nullptr ? call(block, name, value, size) : 0;
}

} // namespace

constinit DebugCalls debugCalls = {currentProcess, readMemory,   closeSnapshot,
                                   versionSize,    versionBlock, versionValue};

} // namespace platform
