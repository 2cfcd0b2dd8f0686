// The library's start: everything that exists from the load to the unload, made by one initialiser.

#include "startUp.h"

#include "diagnostics/stackLibraries.h"
#include "diagnostics/stackReport.h"

LoadTable::LoadTable()
    : loadedAt(platform::monotonicNanoseconds()), loadedAtWall(platform::calls.wallClock()) {}

StartUp::Earlier::Earlier() : readers(readerState()), locales(localeTable()) {}

StartUp::Diagnostics::Diagnostics()
    : lock(dumpLock()), incoming(incomingTraffic()), outgoing(outgoingTraffic()) {
    loadStackLibraries();
}

StartUp::Diagnostics::~Diagnostics() {
    releaseStackLibraries();
}

StartUp::StartUp() = default;

StartUp& startUp() {
    static StartUp object;
    return object;
}

namespace {
// In front of the other initialisers of the library.
struct MadeAtLoad {
    MadeAtLoad() { startUp(); }
};
[[gnu::init_priority(200), gnu::used]] MadeAtLoad madeAtLoad;
} // namespace
