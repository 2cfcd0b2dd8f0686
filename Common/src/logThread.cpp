// Decoration of the calling thread's lines, and the text about the program.

#include <mutex>
#include <string>

#include "dw_util/cutCopy.h"
#include "dw_util/threadLogState.h"
#include "libn/dwmini.h"
#include "vdreader/log.h"

namespace {

constexpr std::size_t kMarkSize = 8;

struct AppInfo {
    std::mutex lock;
    std::string text;
};

AppInfo& appInfo() {
    static AppInfo info;
    return info;
}

} // namespace

extern "C" {

void setbanner(const char* text) {
    copyCut(threadLogState().banner, text);
}
void setbanner_ptr(const char* text) {
    threadLogState().bannerPtr = text;
}
void unsetbanner_ptr(void) {
    threadLogState().bannerPtr = nullptr;
}

// Not inlined: the marks of ended threads are found by this name.
[[gnu::noinline]] char* getsmark(void) {
    ThreadLogState& state = threadLogState();
    // Deliberate: the mark stays behind when its thread ends.  Callers keep the pointer.
    if (state.mark == nullptr)
        state.mark =
            static_cast<char*>(dwminiAlloc(kMarkSize, "Common/src/dw_util", __LINE__, true));
    return state.mark;
}
void util_set_mark(const char* text) {
    copyCut(*reinterpret_cast<char(*)[kMarkSize]>(getsmark()), text);
}

void appendappinfo(const char* text) {
    AppInfo& info = appInfo();
    const std::lock_guard guard(info.lock);
    info.text += text;
    info.text += '\n';
}
const char* getappinfo(void) {
    AppInfo& info = appInfo();
    // Deliberate: the pointer leaves the lock.  Callers read it in a process that appends no more.
    const std::lock_guard guard(info.lock);
    return info.text.c_str();
}

} // extern "C"
