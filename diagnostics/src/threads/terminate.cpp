// The end of a hanging thread by force, and what it leaves before it goes: a line, a dump, its
// stack.

#include <cstring>
#include <exception>
#include <mutex>
#include <string>
#include <system_error>

#include "diagnostics/crashDumps.h"
#include "diagnostics/stackReport.h"
#include "platform/error.h"
#include "platform/library.h"
#include "platform/threadControl.h"
#include "vdreader/log.h"
#include "vdreader/postmortem.h"

namespace {

using platform::threadCalls;

constexpr std::int32_t kDumpWithHandles = 4;

using ThreadIdOf = std::uint32_t (*)(platform::ThreadHandle thread);

// Tells of a failed call of the system; 0.
std::int32_t failed(const char* format) {
    const std::uint32_t reason = platform::lastError();
    exc_h_print(format, reason);
    return 0;
}

void announce(platform::ThreadHandle thread) {
    const platform::LibraryHandle kernel = platform::libraryCalls.load("kernel32.dll");
    const auto idOf =
        kernel != nullptr
            ? reinterpret_cast<ThreadIdOf>(platform::libraryCalls.symbol(kernel, "GetThreadId"))
            : nullptr;
    if (idOf != nullptr)
        exc_h_print("NTerminateThread. Terminating thread %u.", idOf(thread));
    else
        exc_h_print(
            "NTerminateThread. Terminating thread. Thread's ID is unknown because failed "
            "to load GetThreadId function (kernel32.dll).");
    if (kernel != nullptr)
        platform::libraryCalls.release(kernel);
}

// A thread that hangs must go, whatever becomes of the dump: settings that cannot be read count as
// dumps that are off.
void dumpIfWanted() {
    try {
        if (!IsAutoDumpCreationEnabled())
            return;
        const std::lock_guard guard(dumpLock());
        makeDumpPath(0);
        writeDumpOnThread(kDumpWithHandles, 0, nullptr);
    } catch (const std::exception&) {
        return;
    }
}

// Suspends the thread and reports its stack.
bool reportStack(platform::ThreadHandle thread) {
    if (threadCalls.suspend(thread) == platform::kSuspendFailed)
        return failed("SuspendThread GLE [%d]") != 0;
    platform::ThreadContext context = {};
    // Deliberate: whatever fails from here on, the thread stays suspended.  A thread that was given
    // up must not go on with what it holds half changed.
    if (!threadCalls.contextOf(thread, platform::kContextOfWalk, &context))
        return failed("GetThreadContext GLE [%d]") != 0;
    walkAndLog(&context, {});
    return true;
}

std::int32_t terminate(platform::ThreadHandle thread, std::uint32_t exitCode) {
    // Deliberate: the dump comes before any look at the thread, so one that has ended makes a dump
    // too.  Operators find a dump for each line that announces an end.
    dumpIfWanted();
    std::uint32_t present = 0;
    if (!threadCalls.exitCodeOf(thread, &present))
        return failed("GetExitCodeThread GLE [%d]");
    if (present != platform::kStillActive) {
        exc_h_print("Thread is not active. ExitCode [%d]", present);
        return 0;
    }
    if (exitCode != 0 && !reportStack(thread))
        return 0;
    const std::int32_t result = threadCalls.terminate(thread, exitCode);
    return result != 0 ? result : failed("TerminateThread failed with error code %d.");
}

} // namespace

extern "C" std::int32_t NTerminateThread(void* thread, std::uint32_t exitCode) {
    announce(thread);
    return terminate(thread, exitCode);
}

extern "C" std::int32_t NTerminateThreadEx(sThreadObject* thread, std::uint32_t exitCode) {
    exc_h_print(
        ("NTerminateThread.Terminating thread " + std::to_string(thread->id) + ".").c_str());
    if (terminate(thread->handle, exitCode) == 0)
        return 0;
    // Deliberate: an object that cannot be detached is told of only now, with the thread gone.
    // Callers give a thread up whatever its object is good for.
    if (thread->id == 0)
        throw std::system_error(std::make_error_code(std::errc::invalid_argument));
    if (!threadCalls.close(thread->handle))
        throw std::system_error(static_cast<int>(platform::lastError()), std::system_category());
    *thread = {};
    return 1;
}
