// When a dump is made, and which kind.

#include "diagnostics/crashDumps.h"

#include <atomic>
#include <cstdio>
#include <mutex>
#include <optional>

#include "diagnostics/stackReport.h"
#include "libn/Ini.h"
#include "libn/TraceLine.h"
#include "platform/process.h"
#include "platform/thread.h"
#include "vdreader/log.h"

namespace {

// MINIDUMP_TYPE.
constexpr std::int32_t kMini = 0;
constexpr std::int32_t kFullMemory = 2;
constexpr std::int32_t kHandleData = 4;

// Counted dumps up to which one may be full.
constexpr std::int32_t kMostFullDumps = 2;

// The status codes of remote calls: they tell of the other side, not of this process.
constexpr std::uint32_t kFirstRpcCode = 1700;
constexpr std::uint32_t kLastRpcCode = 1791;

std::optional<std::int32_t> autoDumpSetting; // under dumpLock
constinit std::atomic<std::int32_t> crashDumpCount{0};
constinit std::atomic<std::uint32_t> dumpsDisabled{0};

std::int32_t dumpOption(const char* key) {
    const char name[] = {'.', platform::pathForm.separator, '\0'};
    const libn::Ini ini(std::string(name) + "sarn.ini");
    return ini.getInt("dumps", key, 0);
}

bool limitExceeded() {
    return crashDumpCount.load(std::memory_order_relaxed) > kMostFullDumps;
}

// Deliberate: mini dumps count as full ones do, so a process that crashes again and again comes to
// the small ones soon, whatever its settings were at first.
void countDump() {
    crashDumpCount.fetch_add(1);
}

std::int32_t kindOfCrashDump() {
    const bool full = dumpOption("fulloncrash") != 0 && !limitExceeded();
    countDump();
    return full ? kFullMemory : kMini;
}

} // namespace

bool IsAutoDumpCreationEnabled(void) {
    // In front of the lock: a process that goes down does not wait for a dump.
    if (dumpsDisabled.load(std::memory_order_relaxed) != 0)
        return false;
    const std::lock_guard guard(dumpLock());
    if (!autoDumpSetting)
        autoDumpSetting = dumpOption("auto");
    return *autoDumpSetting != 0;
}

void EnableAutoDumpCreation(bool enable) {
    const std::lock_guard guard(dumpLock());
    autoDumpSetting = enable ? 1 : 0;
}

bool IsFullDumpLimitExceeded(void) {
    return limitExceeded();
}

void SetDisableDumpsOnProcessStop(void) {
    dumpsDisabled.exchange(1);
}

void CreateProcessCrashDump(int32_t type, sExceptionPointers* pointers, int32_t onlyIfAuto) {
    if (onlyIfAuto != 0 && !IsAutoDumpCreationEnabled())
        return;
    const std::uint32_t code = pointers->record->code;
    if (code >= kFirstRpcCode && code <= kLastRpcCode) {
        char text[80];
        std::snprintf(text, sizeof text,
                      "ExcFilterI: Skipping dump creation for RPC exception 0x%08X", code);
        exc_h_print("%s", text);
        return;
    }
    libn::TraceLine("DUMP:: <CreateProcessCrashDump", 0) << "Beginning crash dump creation";
    libn::TraceLine line("DUMP:: CreateProcessCrashDump>", 0);
    const std::lock_guard guard(dumpLock());
    const std::int32_t kind = type == kFullMemory ? kindOfCrashDump() : type;
    makeDumpPath(kind);
    writeDumpOnThread(kind, platform::threadId(), pointers);
    // Deliberate: "done" whatever came of it.  Who reads the logs looks for the file.
    line << "Crash dump [" << static_cast<const char*>(dumpPath) << "] done";
}

void CreateProcessDump(int32_t type, bool limited, bool onlyIfAuto) {
    if (onlyIfAuto && !IsAutoDumpCreationEnabled())
        return;
    const std::lock_guard guard(dumpLock());
    if (type == kFullMemory && limited) {
        if (limitExceeded())
            type = kMini;
        countDump();
    }
    makeDumpPath(type);
    // Deliberate: handles go with dumps on request alone.  A crash gets the smallest dump that
    // shows it.
    writeDumpOnThread(type | kHandleData, 0, nullptr);
}
