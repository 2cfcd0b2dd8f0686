// Threads on Windows: the system's own calls.

#include "platform/threadControl.h"

#include <windows.h>

#include "../src/threadSystem.h"

namespace platform {

static_assert(kContextSize == sizeof(CONTEXT));
static_assert(kStillActive == STILL_ACTIVE);
static_assert(kContextOfWalk == CONTEXT_FULL);
static_assert(kContextOfReport == CONTEXT_ALL);

ThreadHandle currentThread() noexcept {
    return ::GetCurrentThread();
}

namespace system {

std::uint32_t threadIdOf(ThreadHandle thread) {
    return ::GetThreadId(thread);
}

bool exitCodeOf(ThreadHandle thread, std::uint32_t* code) {
    DWORD found = 0;
    if (!::GetExitCodeThread(thread, &found))
        return false;
    *code = found;
    return true;
}

std::uint32_t suspendThread(ThreadHandle thread) {
    return ::SuspendThread(thread);
}

std::uint32_t resumeThread(ThreadHandle thread) {
    return ::ResumeThread(thread);
}

bool contextOf(ThreadHandle thread, std::uint32_t flags, ThreadContext* out) {
    auto* context = reinterpret_cast<CONTEXT*>(out);
    context->ContextFlags = flags;
    return ::GetThreadContext(thread, context) != 0;
}

std::int32_t terminateThread(ThreadHandle thread, std::uint32_t exitCode) {
    return ::TerminateThread(thread, exitCode);
}

bool closeThread(ThreadHandle thread) {
    return ::CloseHandle(thread) != 0;
}

} // namespace system

} // namespace platform
