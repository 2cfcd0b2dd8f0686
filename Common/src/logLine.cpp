// Building of one line.

#include "dw_util/logLine.h"

#include <cstring>

#include "dw_util/cutCopy.h"
#include "dw_util/format.h"
#include "dw_util/threadLogState.h"
#include "headerText.h"
#include "libn/Assert.h"
#include "libn/dwmini.h"
#include "platform/process.h"

namespace {

constexpr char kSource[] = "Common/src/dw_util";
constexpr char kCutMark[] = "...\n";
constexpr std::size_t kCutMarkLength = sizeof kCutMark - 1;

// Where the cache of a thread stands in its line buffer, well behind the longest line and the byte
// that ends it.
constexpr std::size_t kCacheAt = 2048;
static_assert(kCacheAt > kLineSize && kCacheAt % alignof(LineCache) == 0);
static_assert(kCacheAt + sizeof(LineCache) <= kLineBufferSize);

char* bufferOf(const ThreadLogState& state) {
    return state.abuf != nullptr ? state.abuf : getabuf();
}

LineCache& cacheOf(const ThreadLogState& state) {
    return *reinterpret_cast<LineCache*>(bufferOf(state) + kCacheAt);
}

// What is left for the line with its end; 0 for a full line or one that was not begun.
std::size_t roomOf(const ThreadLogState& state) {
    char* const begin = bufferOf(state);
    if (begin > state.aptr) {
        libn::assertionFailed("Invalid getaptr or getabuf call result", kSource, 274);
        return 0;
    }
    const std::ptrdiff_t room = begin + kLineSize - state.aptr;
    if (room > 0)
        return static_cast<std::size_t>(room);
    begin[kLineSize - 1] = '\n';
    return 0;
}

// `length` bytes of text were meant for the room and stand in it, as far as it goes.
int endPiece(ThreadLogState& state, std::size_t room, std::size_t length) {
    if (length >= room) {
        std::memcpy(state.abuf + kLineSize - kCutMarkLength, kCutMark, kCutMarkLength);
        length = room;
    }
    state.aptr += length;
    return static_cast<int>(length);
}

} // namespace

// Not inlined: the buffers of ended threads are found by this name.
[[gnu::noinline]] char* getabuf() {
    ThreadLogState& state = threadLogState();
    // Deliberate: the buffer stays behind when its thread ends.  Sinks of the family may hold on to
    // a line of a thread that is gone.
    if (state.abuf == nullptr)
        state.abuf = static_cast<char*>(dwminiAlloc(kLineBufferSize, kSource, __LINE__, true));
    return state.abuf;
}

char* getaptr() {
    return threadLogState().aptr;
}

void beginLine() {
    ThreadLogState& state = threadLogState();
    char* buffer = bufferOf(state);
    *buffer = '\0';
    state.aptr = buffer;
}

int vaprintf(const char* format, std::va_list arguments) {
    ThreadLogState& state = threadLogState();
    const std::size_t room = roomOf(state);
    if (room == 0)
        return 0;
    const int length = formatText(state.aptr, room, format, arguments);
    // A conversion that fails: the line goes on behind what came in front of it.
    return endPiece(state, room,
                    length >= 0 ? static_cast<std::size_t>(length) : strnlen(state.aptr, room - 1));
}

int aprintf(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const int count = vaprintf(format, arguments);
    va_end(arguments);
    return count;
}

int appendText(std::string_view text) {
    ThreadLogState& state = threadLogState();
    const std::size_t room = roomOf(state);
    if (room == 0)
        return 0;
    const std::size_t kept = text.size() < room ? text.size() : room - 1;
    std::memcpy(state.aptr, text.data(), kept);
    state.aptr[kept] = '\0';
    return endPiece(state, room, text.size());
}

void aputHeader(const char* letter) {
    const ThreadLogState& state = threadLogState();
    LineCache& cache = cacheOf(state);
    appendText(letter);
    appendText(headerText(cache, state));
    appendText(state.bannerPtr != nullptr ? state.bannerPtr : state.banner);
}

std::string_view getappname() {
    ThreadLogState& state = threadLogState();
    LineCache& cache = cacheOf(state);
    if (cache.nameFrom == platform::calls.executablePath && cache.nameFrom != nullptr)
        return {state.appName, cache.nameLength};
    char path[261] = {};
    const bool told = platform::calls.executablePath(path, sizeof path) != 0;
    copyCut(state.appName, path);
    cache.nameLength = std::strlen(state.appName);
    cache.nameFrom = told ? platform::calls.executablePath : nullptr;
    return {state.appName, cache.nameLength};
}
