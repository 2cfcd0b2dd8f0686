// The system's own form of each call of the table of threads; one definition for each target.

#pragma once

#include "platform/threadControl.h"

namespace platform::system {

std::uint32_t threadIdOf(ThreadHandle thread);
bool exitCodeOf(ThreadHandle thread, std::uint32_t* code);
std::uint32_t suspendThread(ThreadHandle thread);
std::uint32_t resumeThread(ThreadHandle thread);
bool contextOf(ThreadHandle thread, std::uint32_t flags, ThreadContext* out);
std::int32_t terminateThread(ThreadHandle thread, std::uint32_t exitCode);
bool closeThread(ThreadHandle thread);

} // namespace platform::system
