// The exported functions that write a line.

#include "vdreader/log.h"

#include <atomic>
#include <cstdlib>

#include "dw_util/logLine.h"
#include "dw_util/logSinks.h"
#include "dw_util/sourceName.h"
#include "dw_util/threadLogState.h"
#include "platform/error.h"

namespace {

void goNowhere(const char*) {}

std::atomic<std::int32_t> debugLevel{0};

void finish(void (*flush)(const char* line)) {
    appendText("\n");
    flush(getabuf());
}

// Lines of the event log: header, message.
void putEvent(const char* letter, void (*flush)(const char* line), const char* format,
              std::va_list arguments) {
    beginLine();
    aputHeader(letter);
    vaprintf(format, arguments);
    finish(flush);
}

// Header and program.
void beginProgramLine(const char* letter) {
    beginLine();
    aputHeader(letter);
    appendText("Running ");
    appendText(getappname());
    appendText(": ");
}

// error and warning: header, program, word, message.
void putProblem(const char* letter, const char* word, const char* format, std::va_list arguments) {
    beginProgramLine(letter);
    appendText(word);
    appendText(": ");
    vaprintf(format, arguments);
    finish(logSinks.errors);
}

// What a failed call of the system is reported with: header, program, place, message.
void beginFailure(const char* letter, const char* file, std::int32_t line, const char* format,
                  std::va_list arguments) {
    beginProgramLine(letter);
    aprintf("(%s at %d) ", sourceName(file), static_cast<int>(line));
    vaprintf(format, arguments);
}

void putSystemFailure(std::uint32_t code, const char* file, std::int32_t line, const char* format,
                      std::va_list arguments) {
    beginFailure("O", file, line, format, arguments);
    char reason[kLineSize];
    platform::systemErrorText(code, reason, sizeof reason);
    aprintf(" OS error description: [%d] [%s].", static_cast<int>(code), reason);
    finish(logSinks.errors);
}

void putSocketFailure(std::uint32_t code, const char* file, std::int32_t line, const char* format,
                      std::va_list arguments) {
    beginFailure("S", file, line, format, arguments);
    char reason[kLineSize];
    platform::systemErrorText(code, reason, sizeof reason);
    // Deliberate: no blank in front.  Filters of the family's operators match the line as it is.
    aprintf("OS error description: %s.", reason);
    finish(logSinks.errors);
}

void putDebug(std::int32_t level, const char* format, std::va_list arguments) {
    if (debugLevel.load(std::memory_order_relaxed) < std::llabs(level))
        return;
    // Deliberate: levels outside 0 to 9 give other characters, "/" for -1.  Readers of the logs
    // tell levels by them.
    const char letter[2] = {static_cast<char>(static_cast<unsigned char>(level) + '0'), '\0'};
    putEvent(letter, logSinks.events, format, arguments);
}

} // namespace

constinit LogSinks logSinks = {goNowhere, goNowhere, goNowhere, goNowhere};

// Runs `put` with the variable arguments of an exported function.
#define VDREADER_LOG(put, ...)   \
  std::va_list arguments;        \
  va_start(arguments, format);   \
  try {                          \
    put(__VA_ARGS__, arguments); \
  } catch (...) {                \
    va_end(arguments);           \
    throw;                       \
  }                              \
  va_end(arguments)

extern "C" {

void error(const char* format, ...) {
    VDREADER_LOG(verror, format);
}
void verror(const char* format, std::va_list arguments) {
    putProblem("E", "Error", format, arguments);
}

void warning(const char* format, ...) {
    VDREADER_LOG(vwarning, format);
}
void vwarning(const char* format, std::va_list arguments) {
    putProblem("W", "Warning", format, arguments);
}

// The last error is read before anything can change it.
void oserrori(const char* format, ...) {
    const std::uint32_t code = platform::lastError();
    const ThreadLogState& at = threadLogState();
    VDREADER_LOG(putSystemFailure, code, at.placeFile, at.placeLine, format);
}
void oserrori_ex(const char* file, std::int32_t line, const char* format, ...) {
    const std::uint32_t code = platform::lastError();
    VDREADER_LOG(putSystemFailure, code, file, line, format);
}

void socerrori(const char* format, ...) {
    const std::uint32_t code = platform::lastSocketError();
    const ThreadLogState& at = threadLogState();
    VDREADER_LOG(putSocketFailure, code, at.placeFile, at.placeLine, format);
}
void socerrori_ex(const char* file, std::int32_t line, const char* format, ...) {
    const std::uint32_t code = platform::lastSocketError();
    VDREADER_LOG(putSocketFailure, code, file, line, format);
}

void event(const char* format, ...) {
    VDREADER_LOG(vevent, format);
}
void vevent(const char* format, std::va_list arguments) {
    putEvent("V", logSinks.events, format, arguments);
}

void devent(std::int32_t level, const char* format, ...) {
    VDREADER_LOG(vdevent, level, format);
}
void vdevent(std::int32_t level, const char* format, std::va_list arguments) {
    putDebug(level, format, arguments);
}

void exc_h_print(const char* format, ...) {
    VDREADER_LOG(putEvent, "F", logSinks.exceptions, format);
}

void netevent(const char* format, ...) {
    beginLine();
    VDREADER_LOG(vaprintf, format);
    logSinks.netEvents(getabuf());
}

std::int32_t SetDebugLevel(std::int32_t level) {
    if (level < 0)
        return GetDebugLevel();
    return debugLevel.exchange(level, std::memory_order_relaxed);
}
std::int32_t GetDebugLevel(void) {
    return debugLevel.load(std::memory_order_relaxed);
}

} // extern "C"
