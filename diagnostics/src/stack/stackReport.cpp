// The reports that callers ask for.

#include "diagnostics/stackReport.h"

#include <memory>

#include "diagnostics/StackWalker.h"
#include "platform/debugHelp.h"
#include "platform/lasting.h"
#include "platform/thread.h"
#include "platform/threadControl.h"
#include "vdreader/log.h"
#include "vdreader/postmortem.h"

namespace {

void toEventLog(const char* text) {
    event("%s", text);
}

} // namespace

std::recursive_mutex& dumpLock() {
    // Never destroyed: threads may fail until the process is gone.
    static const platform::Lasting<std::recursive_mutex> lock;
    return lock.get();
}

void walkAndLog(const void* context, const ReportCallback& callback) {
    const std::lock_guard guard(dumpLock());
    // A walker of its own for each report: symbols of one do not outlive it, and each has the whole
    // list of modules.
    velt::callstack::StackWalker walker(platform::processId(),
                                        platform::debugCalls.currentProcess());
    walker.setOutput(std::make_shared<sarn::ExceptionHandlerOutput>(callback));
    walker.walk(context, platform::currentThread());
}

void ServerStackWalk(const void* context) {
    walkAndLog(context, toEventLog);
}

void DrawCurrentStack(void) {
    platform::ThreadContext context = {};
    platform::threadCalls.contextOf(platform::currentThread(), platform::kContextOfReport,
                                    &context);
    walkAndLog(&context, toEventLog);
}
