// Where the lines of a report go and what stands around them.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "diagnostics/StackWalker.h"
#include "dw_util/format.h"
#include "vdreader/log.h"

namespace {

constexpr char kModuleHead[] = "[ModuleList] ";
constexpr char kStackHead[] = "[CallStack] ";

struct Released {
    void operator()(char* block) const { std::free(block); }
};

// Writes a head and a text as one line.  The texts of a walker fit the stack.  A longer one, as a
// derived walker may have it, takes a block of the plain heap, and is cut where that has none.
void writeBehind(const char* head, const char* text, velt::callstack::Output& output) {
    char line[sizeof kModuleHead + velt::callstack::kTextSize];
    const std::size_t size = std::strlen(head) + std::strlen(text) + 1;
    const std::unique_ptr<char, Released> longer(
        size > sizeof line ? static_cast<char*>(std::malloc(size)) : nullptr);
    char* const whole = longer != nullptr ? longer.get() : line;
    std::snprintf(whole, longer != nullptr ? size : sizeof line, "%s%s", head, text);
    output.writeLine(whole);
}

} // namespace

namespace velt::callstack {

void Output::beginModules() {
    writeLine(">>=========== Module List ============");
}
void Output::moduleLine(const char* text) {
    writeBehind(kModuleHead, text, *this);
}
void Output::endModules() {
    writeLine("<<=========== Module List ============");
}
void Output::beginStack() {
    writeLine(">>============ Call Stack ============");
}
void Output::stackLine(const char* text) {
    writeBehind(kStackHead, text, *this);
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
    writeBehind(kModuleHead, text, *this);
}
void ExceptionHandlerOutput::endModules() {
    writeLine("[ModuleList] ------------- End ---------------");
}
void ExceptionHandlerOutput::beginStack() {
    writeLine("[CallStack] ------------- Begin -------------");
    writeLine("[CallStack]            Address:              Frame:");
}
void ExceptionHandlerOutput::stackLine(const char* text) {
    writeBehind(kStackHead, text, *this);
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
