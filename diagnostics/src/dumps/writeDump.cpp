// One dump: the thread that writes it, and the way to the system's writer.
//
// The heap of the run-time may be what has failed, so nothing here asks it for memory but what the
// system itself takes to start the thread (see platform/dumpWriter.h).  What is kept between dumps
// is used under dumpLock, which whoever waits for the thread holds for it.

#include <atomic>

#include "diagnostics/crashDumps.h"
#include "platform/dumpWriter.h"
#include "platform/fault.h"
#include "platform/library.h"
#include "platform/thread.h"

namespace {

constexpr char kLibrary[] = "DBGHELP.DLL";
constexpr std::size_t kNameLimit = 260;
// What is looked at of the exception pointers.
constexpr std::size_t kPointersLooked = 8;

platform::DumpWriter miniDumpWriter = nullptr;
std::uint32_t dumpLoadState = dumpNotTried;

// A name of the system for as long as it is needed.
class HeldName {
  public:
    explicit HeldName(const char* name) : m_name(platform::dumpCalls.systemName(name)) {}
    ~HeldName() { platform::dumpCalls.freeSystemName(m_name); }
    HeldName(const HeldName&) = delete;
    HeldName& operator=(const HeldName&) = delete;

    platform::SystemName get() const { return m_name; }
    bool isBad() const {
        return m_name == nullptr || platform::dumpCalls.badSystemName(m_name, kNameLimit);
    }

  private:
    platform::SystemName m_name;
};

std::uint32_t findWriter() {
    // Deliberate: one try for the life of the process.  A loader that failed in a crash is not
    // asked again in the next one.
    if (dumpLoadState != dumpNotTried)
        return dumpLoadState;
    platform::LibraryHandle library = platform::libraryCalls.loaded(kLibrary);
    if (library == nullptr)
        library = platform::libraryCalls.load(kLibrary);
    if (library == nullptr)
        return dumpLoadState = dumpNoLibrary;
    miniDumpWriter = reinterpret_cast<platform::DumpWriter>(
        platform::libraryCalls.symbol(library, "MiniDumpWriteDump"));
    return dumpLoadState = miniDumpWriter != nullptr ? dumpWritten : dumpNoWriter;
}

// What the dump thread gets, from the stack of the one that waits for it.
struct DumpRequest {
    std::uint32_t kind;
    const char* fileName;
    sExceptionPointers* pointers;
    std::uint32_t threadId;
};

volatile char* volatile nowhere = nullptr;

// Deliberate: a request without pointers shows this fault, so that each dump has an exception
// record and debuggers open it in the same way.
__attribute__((noinline, no_sanitize("undefined", "address"))) void faultOnPurpose() {
    *nowhere = 0;
}

void writeRequested(void* argument) {
    const auto* request = static_cast<const DumpRequest*>(argument);
    if (request->pointers != nullptr)
        writeDumpFile(static_cast<std::int32_t>(request->kind), request->fileName,
                      request->threadId, request->pointers);
    else
        faultOnPurpose();
}

// Also takes a fault of the writer itself: one more try, of the new exception.
platform::FilterAnswer writeFault(sExceptionPointers* pointers, void* argument) {
    const auto* request = static_cast<const DumpRequest*>(argument);
    writeDumpFile(static_cast<std::int32_t>(request->kind), request->fileName, platform::threadId(),
                  pointers);
    return platform::FilterAnswer::executeHandler;
}

void dumpThread(void* argument) {
    platform::runGuarded(writeRequested, writeFault, argument);
}

} // namespace

std::uint32_t writeDumpFile(std::int32_t kind, const char* name, std::uint32_t threadId,
                            sExceptionPointers* pointers) {
    const platform::DumpCalls& calls = platform::dumpCalls;
    if (calls.badText(name, kNameLimit))
        return dumpBadArgument;
    const HeldName held(name);
    if (held.isBad() || calls.badMemory(pointers, kPointersLooked) || threadId == 0)
        return dumpBadArgument;
    if (miniDumpWriter == nullptr)
        if (const std::uint32_t failure = findWriter())
            return failure;

    const platform::DumpFile file = calls.createFile(held.get());
    if (file == nullptr)
        return dumpLoadState = dumpNoFile;
    const platform::DumpException exception = {threadId, pointers, 1};
    const std::int32_t result =
        miniDumpWriter(calls.currentProcess(), platform::processId(), file,
                       static_cast<std::uint32_t>(kind), &exception, nullptr, nullptr);
    calls.closeFile(file);
    return dumpLoadState = result == 1 ? dumpWritten : dumpWriteFailed;
}

std::uint32_t writeDumpOnThread(std::int32_t kind, std::uint32_t threadId,
                                sExceptionPointers* pointers) {
    if (platform::dumpCalls.badText(dumpPath, kNameLimit))
        return dumpBadArgument;
    DumpRequest request = {static_cast<std::uint32_t>(kind), dumpPath, pointers, threadId};
    return platform::dumpCalls.runOnThread(dumpThread, &request) ? dumpWritten : dumpNoThread;
}
