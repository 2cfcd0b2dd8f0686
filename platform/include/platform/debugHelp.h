// The debug help, tool help and process status functions that a stack report looks up, with their
// records, and what else it needs of the system.
//
// The functions have the names and results of those of Windows: 0 is a failure with the reason in
// the last error.  On Linux they are tables of this layer (see library.h).  Records are those of
// Windows on both systems.

#pragma once

#include <cstddef>
#include <cstdint>

namespace platform {

using ProcessHandle = void*;
using ModuleHandle = void*;

inline constexpr std::uint32_t kMachineAmd64 = 0x8664;
inline constexpr std::uint32_t kAddressModeFlat = 3;

struct Address64 {
    std::uint64_t offset;
    std::uint16_t segment;
    std::uint32_t mode;
};

struct StackFrame64 {
    Address64 programCounter;
    Address64 returnAddress;
    Address64 frame;
    Address64 stack;
    Address64 backingStore;
    void* functionTable;
    std::uint64_t parameters[4];
    std::int32_t isFar;
    std::int32_t isVirtual;
    std::uint64_t reserved[3];
    unsigned char kernel[112];
};
static_assert(sizeof(StackFrame64) == 264);
static_assert(offsetof(StackFrame64, returnAddress) == 16);
static_assert(offsetof(StackFrame64, frame) == 32);
static_assert(offsetof(StackFrame64, stack) == 48);
static_assert(offsetof(StackFrame64, reserved) == 128);

// What a module's symbols came from.
inline constexpr std::uint32_t kSymNone = 0;
inline constexpr std::uint32_t kSymExport = 4;
inline constexpr std::uint32_t kSymDebug = 7;

// The long form; the short one is its first 584 bytes, with LoadedImageName at its end.
struct ModuleInfo64 {
    std::uint32_t size;
    std::uint64_t base;
    std::uint32_t imageSize;
    std::uint32_t timeStamp;
    std::uint32_t checkSum;
    std::uint32_t symbols;
    std::uint32_t symType;
    char moduleName[32];
    char imageName[256];
    char loadedImageName[256];
    char loadedPdbName[256];
    unsigned char rest[836];
};
inline constexpr std::uint32_t kModuleInfoLong = 1672;
inline constexpr std::uint32_t kModuleInfoShort = 584;
static_assert(sizeof(ModuleInfo64) == kModuleInfoLong);
static_assert(offsetof(ModuleInfo64, base) == 8);
static_assert(offsetof(ModuleInfo64, symType) == 32);
static_assert(offsetof(ModuleInfo64, moduleName) == 36);
static_assert(offsetof(ModuleInfo64, loadedImageName) == 324);
static_assert(offsetof(ModuleInfo64, loadedPdbName) == 580);

inline constexpr std::uint32_t kSymbolHead = 32;
inline constexpr std::uint32_t kSymbolName = 1024;

struct SymbolRecord {
    std::uint32_t size; // kSymbolHead
    std::uint64_t address;
    std::uint32_t symbolSize;
    std::uint32_t flags;
    std::uint32_t maxNameLength; // kSymbolName, with the terminator
    char name[kSymbolName + 4];
};
static_assert(sizeof(SymbolRecord) == 1056);
static_assert(offsetof(SymbolRecord, maxNameLength) == 24);
static_assert(offsetof(SymbolRecord, name) == 28);

struct LineRecord {
    std::uint32_t size; // sizeof
    void* key;
    std::uint32_t number;
    char* file; // the debug help library's, good until its next call
    std::uint64_t address;
};
static_assert(sizeof(LineRecord) == 40);
static_assert(offsetof(LineRecord, file) == 24);

struct ModuleEntry32 {
    std::uint32_t size; // sizeof
    std::uint32_t moduleId;
    std::uint32_t processId;
    std::uint32_t globalUsage;
    std::uint32_t processUsage;
    unsigned char* base;
    std::uint32_t imageSize;
    ModuleHandle module;
    char name[256];
    char path[260];
};
static_assert(sizeof(ModuleEntry32) == 568);
static_assert(offsetof(ModuleEntry32, base) == 24);
static_assert(offsetof(ModuleEntry32, module) == 40);
static_assert(offsetof(ModuleEntry32, path) == 304);

struct ModuleInformation {
    void* base;
    std::uint32_t imageSize;
    void* entryPoint;
};
static_assert(sizeof(ModuleInformation) == 24);

// Memory of a process into `out`; `done` gets the number of bytes (ReadProcessMemory).
using MemoryReader = std::int32_t (*)(ProcessHandle process, std::uint64_t address, void* out,
                                      std::uint32_t size, std::uint32_t* done);
using FunctionTableAccess = void* (*)(ProcessHandle process, std::uint64_t address);
using ModuleBaseReader = std::uint64_t (*)(ProcessHandle process, std::uint64_t address);

struct DebugHelpFunctions {
    std::int32_t (*symInitialize)(ProcessHandle process, const char* searchPath,
                                  std::int32_t invade) = nullptr;
    std::int32_t (*symCleanup)(ProcessHandle process) = nullptr;
    std::int32_t (*stackWalk64)(std::uint32_t machine, ProcessHandle process, void* thread,
                                StackFrame64* frame, void* context, MemoryReader readMemory,
                                FunctionTableAccess functionTable, ModuleBaseReader moduleBase,
                                void* translate) = nullptr;
    std::uint32_t (*symGetOptions)() = nullptr;
    std::uint32_t (*symSetOptions)(std::uint32_t options) = nullptr;
    FunctionTableAccess symFunctionTableAccess64 = nullptr;
    std::int32_t (*symGetLineFromAddr64)(ProcessHandle process, std::uint64_t address,
                                         std::uint32_t* displacement, LineRecord* line) = nullptr;
    ModuleBaseReader symGetModuleBase64 = nullptr;
    std::int32_t (*symGetModuleInfo64)(ProcessHandle process, std::uint64_t address,
                                       void* record) = nullptr;
    std::int32_t (*symGetSymFromAddr64)(ProcessHandle process, std::uint64_t address,
                                        std::uint64_t* displacement,
                                        SymbolRecord* symbol) = nullptr;
    std::uint32_t (*unDecorateSymbolName)(const char* name, char* out, std::uint32_t size,
                                          std::uint32_t flags) = nullptr;
    std::uint64_t (*symLoadModule64)(ProcessHandle process, void* file, const char* imagePath,
                                     const char* moduleName, std::uint64_t base,
                                     std::uint32_t size) = nullptr;
    std::int32_t (*symGetSearchPath)(ProcessHandle process, char* out,
                                     std::uint32_t size) = nullptr;
};

using Snapshot = void*;
inline void* const kNoSnapshot = reinterpret_cast<Snapshot>(std::intptr_t{-1});
inline constexpr std::uint32_t kSnapModules = 8;

struct ToolHelpFunctions {
    Snapshot (*createToolhelp32Snapshot)(std::uint32_t flags, std::uint32_t processId) = nullptr;
    std::int32_t (*module32First)(Snapshot snapshot, ModuleEntry32* entry) = nullptr;
    std::int32_t (*module32Next)(Snapshot snapshot, ModuleEntry32* entry) = nullptr;
};

struct ProcessStatusFunctions {
    std::int32_t (*enumProcessModules)(ProcessHandle process, ModuleHandle* modules,
                                       std::uint32_t size, std::uint32_t* needed) = nullptr;
    std::uint32_t (*getModuleFileNameExA)(ProcessHandle process, ModuleHandle module, char* out,
                                          std::uint32_t size) = nullptr;
    std::uint32_t (*getModuleBaseNameA)(ProcessHandle process, ModuleHandle module, char* out,
                                        std::uint32_t size) = nullptr;
    std::int32_t (*getModuleInformation)(ProcessHandle process, ModuleHandle module,
                                         ModuleInformation* out, std::uint32_t size) = nullptr;
};

// The rest of what a report asks the system for.
struct DebugCalls {
    ProcessHandle (*currentProcess)();        // GetCurrentProcess
    MemoryReader readMemory;                  // ReadProcessMemory
    void (*closeSnapshot)(Snapshot snapshot); // CloseHandle
    // The size of a file's version block, 0 if it has none, as on Linux always
    // (GetFileVersionInfoSizeA); the block (GetFileVersionInfoA); a part of it (VerQueryValueA).
    std::uint32_t (*versionSize)(const char* path, std::uint32_t* handle);
    std::int32_t (*versionBlock)(const char* path, std::uint32_t handle, std::uint32_t size,
                                 void* out);
    std::int32_t (*versionValue)(const void* block, const char* name, void** value,
                                 std::uint32_t* size);
};

// The table in force; tests stand in for its calls.
extern DebugCalls debugCalls;

// The readable form of a name that the C++ compiler has decorated, without parameters and result if
// `nameOnly`.  Cut to `size` with its terminator.  The length, 0 for any other name and for want of
// memory, when `out` is left alone.
std::size_t demangledName(const char* name, char* out, std::size_t size, bool nameOnly) noexcept;

} // namespace platform
