// What dumps need of Windows; MiniDumpWriteDump itself is looked up by who writes them.

#include "platform/dumpWriter.h"

#include <windows.h>

#include <dbghelp.h>

namespace platform {

static_assert(sizeof(MINIDUMP_EXCEPTION_INFORMATION) == sizeof(DumpException));
static_assert(offsetof(MINIDUMP_EXCEPTION_INFORMATION, ExceptionPointers) ==
              offsetof(DumpException, pointers));
static_assert(offsetof(MINIDUMP_EXCEPTION_INFORMATION, ClientPointers) ==
              offsetof(DumpException, clientPointers));

namespace {

std::uint64_t localFileTime() {
    FILETIME utc = {};
    FILETIME local = {};
    ::GetSystemTimeAsFileTime(&utc);
    ::FileTimeToLocalFileTime(&utc, &local);
    return std::uint64_t{local.dwHighDateTime} << 32 | local.dwLowDateTime;
}

bool createFolder(const char* path) {
    return ::CreateDirectoryA(path, nullptr) != 0;
}

bool badText(const char* text, std::size_t limit) {
    return ::IsBadStringPtrA(text, limit) == 1;
}

bool badSystemName(SystemName name, std::size_t limit) {
    return ::IsBadStringPtrW(static_cast<const wchar_t*>(name), limit) == 1;
}

bool badMemory(const void* memory, std::size_t size) {
    return ::IsBadReadPtr(memory, size) == 1;
}

SystemName systemName(const char* name) {
    const int length = ::lstrlenA(name);
    const std::size_t size = 2 * static_cast<std::size_t>(length) + 2;
    void* wide = ::HeapAlloc(::GetProcessHeap(), HEAP_ZERO_MEMORY | HEAP_GENERATE_EXCEPTIONS, size);
    if (wide == nullptr)
        return nullptr;
    if (::MultiByteToWideChar(::GetACP(), 0, name, -1, static_cast<wchar_t*>(wide), length + 1) > 0)
        return wide;
    ::HeapFree(::GetProcessHeap(), 0, wide);
    return nullptr;
}

void freeSystemName(SystemName name) {
    if (name != nullptr)
        ::HeapFree(::GetProcessHeap(), 0, name);
}

DumpFile createFile(SystemName name) {
    const HANDLE file =
        ::CreateFileW(static_cast<const wchar_t*>(name), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                      CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    return file == INVALID_HANDLE_VALUE ? nullptr : file;
}

bool closeFile(DumpFile file) {
    return ::CloseHandle(file) != 0;
}

void* currentProcess() {
    return ::GetCurrentProcess();
}

struct Work {
    void (*body)(void* argument);
    void* argument;
};

DWORD WINAPI runWork(void* argument) {
    const auto* work = static_cast<const Work*>(argument);
    work->body(work->argument);
    return 0;
}

bool runOnThread(void (*body)(void* argument), void* argument) {
    Work work = {body, argument};
    const HANDLE thread = ::CreateThread(nullptr, 0, runWork, &work, 0, nullptr);
    if (thread == nullptr)
        return false;
    ::WaitForSingleObject(thread, INFINITE);
    ::CloseHandle(thread);
    return true;
}

} // namespace

constinit DumpCalls dumpCalls = {
    .localFileTime = localFileTime,
    .createFolder = createFolder,
    .badText = badText,
    .badSystemName = badSystemName,
    .badMemory = badMemory,
    .systemName = systemName,
    .freeSystemName = freeSystemName,
    .createFile = createFile,
    .closeFile = closeFile,
    .currentProcess = currentProcess,
    .runOnThread = runOnThread,
};

} // namespace platform
