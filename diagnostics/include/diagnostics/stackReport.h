// The stack report: module list and frames of a context, in the event log.

#pragma once

#include <functional>
#include <mutex>

// Keeps stack reports and dumps apart; guards all values of theirs.  Recursive: a report of a
// thread that has it in its hands may fault, and the fault is reported too.
std::recursive_mutex& dumpLock();

// Handed to the output of a report and kept there.
using ReportCallback = std::function<void(const char* text)>;

// Writes the report of `context` (see ServerStackWalk; null: the calling thread) under dumpLock.
// What the debug help library cannot do is told by a line of the report and raises nothing.
void walkAndLog(const void* context, const ReportCallback& callback);
