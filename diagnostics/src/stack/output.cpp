// Where the lines of a report go and what stands around them.

#include <cstdio>
#include <string>
#include <utility>

#include "diagnostics/StackWalker.h"
#include "dw_util/format.h"
#include "vdreader/log.h"

namespace velt::callstack {

void Output::beginModules() {
    writeLine(">>=========== Module List ============");
}
void Output::moduleLine(const char* text) {
    writeLine((std::string("[ModuleList] ") + text).c_str());
}
void Output::endModules() {
    writeLine("<<=========== Module List ============");
}
void Output::beginStack() {
    writeLine(">>============ Call Stack ============");
}
void Output::stackLine(const char* text) {
    writeLine((std::string("[CallStack] ") + text).c_str());
}
void Output::endStack() {
    writeLine("<<============ Call Stack ============");
}
void Output::writeLine(const char* text) {
    std::printf("%s\n", text);
    std::fflush(stdout);
}

} // namespace velt::callstack

namespace sarn {

// Deliberate: the callback is kept and never called: other components look at what it holds, and
// lines reach the log once.
ExceptionHandlerOutput::ExceptionHandlerOutput(std::function<void(const char*)> report)
    : callback(std::move(report)) {}

void ExceptionHandlerOutput::beginModules() {
    writeLine("[ModuleList] ------------- Begin -------------");
}
void ExceptionHandlerOutput::moduleLine(const char* text) {
    writeLine((std::string("[ModuleList] ") + text).c_str());
}
void ExceptionHandlerOutput::endModules() {
    writeLine("[ModuleList] ------------- End ---------------");
}
void ExceptionHandlerOutput::beginStack() {
    writeLine("[CallStack] ------------- Begin -------------");
    writeLine("[CallStack]            Address:              Frame:");
}
void ExceptionHandlerOutput::stackLine(const char* text) {
    writeLine((std::string("[CallStack] ") + text).c_str());
}
void ExceptionHandlerOutput::endStack() {
    writeLine("[CallStack] ------------- End ---------------");
}

// Deliberate: the line is a format, so a "%" of a path or an operator is a conversion; tools that
// read reports know these lines.  No argument stands behind it: conversions find zeroes.
void ExceptionHandlerOutput::writeLine(const char* text) {
    char line[2048];
    if (formatWithZeroes(line, sizeof line, text) >= 0)
        event("%s", line);
}

void ExceptionHandlerOutput::beginExtra() {}
void ExceptionHandlerOutput::extraLine(const char* text) {
    writeLine(text);
}
void ExceptionHandlerOutput::endExtra() {}

} // namespace sarn
