// The filter of a crash: dump, exception report, stack.

#include "diagnostics/crashDumps.h"
#include "diagnostics/stackReport.h"
#include "dw_util/format.h"
#include "vdreader/log.h"
#include "vdreader/logfiles.h"

namespace {

// Deliberate: the text is a format.  A "%" of the module's path is a conversion, as in the lines of
// the stack; it finds zeroes.
void printFormat(const char* text) {
    char line[2048]; // more than a line of the log holds
    if (formatWithZeroes(line, sizeof line, text) >= 0)
        exc_h_print("%s", line);
}

} // namespace

int32_t ExcFilterI(sExceptionPointers* pointers) {
    constexpr char kMark[] = "ECTCH";
    CreateProcessCrashDump(2, pointers, 1);
    // Deliberate: the mark stays, so that all that this thread logs from here on shows that it has
    // failed once.
    init_errorlog(nullptr, kMark, nullptr);
    init_eventlog(nullptr, kMark, nullptr);
    exc_h_print(
        "************** %s Exception report: "
        "************************************************************",
        "SEH exception catched.");
    printFormat(exceptionText(pointers).c_str());
    walkAndLog(pointers != nullptr ? pointers->context : nullptr,
               [](const char* text) { event("%s", text); });
    exc_h_print(
        "*****************************************************************"
        "*********************************************************");
    return 1;
}
