// The list of modules of a report.

#include <cstdlib>
#include <memory>

#include "diagnostics/stackLibraries.h"
#include "diagnostics/walkerState.h"
#include "platform/error.h"

namespace velt::callstack {

namespace {

using platform::ModuleHandle;

// The buffers of the process status functions, in bytes.
constexpr std::uint32_t kBufferSize = 8096;

struct Released {
    void operator()(void* block) const { std::free(block); }
};
template <class Element>
using Buffer = std::unique_ptr<Element[], Released>;

// Null where memory is short.  From the plain heap and not the traced one, which a report may be
// about.
template <class Element>
Buffer<Element> makeBuffer(std::size_t size) {
    return Buffer<Element>(static_cast<Element*>(std::malloc(size)));
}

class SnapshotCloser {
  public:
    explicit SnapshotCloser(platform::Snapshot snapshot) : m_snapshot(snapshot) {}
    ~SnapshotCloser() { platform::debugCalls.closeSnapshot(m_snapshot); }
    SnapshotCloser(const SnapshotCloser&) = delete;
    SnapshotCloser& operator=(const SnapshotCloser&) = delete;

  private:
    platform::Snapshot m_snapshot;
};

} // namespace

void WalkerState::loadAndReport(const char* path, const char* name, std::uint64_t base,
                                std::uint32_t size, bool reportsFailure) {
    const DbgHelpLibrary& library = stackLibraries().debugHelp;
    if (library.symLoadModule64(process, nullptr, path, name, base, size) == 0 && reportsFailure &&
        owner != nullptr)
        owner->reportError("LoadModule", platform::lastError(), 0);
    if (owner == nullptr)
        return;
    const std::uint64_t version = (options & kWithFileVersion) != 0 ? fileVersion(path) : 0;
    platform::ModuleInfo64 info;
    const bool known = owner->findModuleInfo(process, base, info);
    const char* const pdb =
        info.loadedPdbName[0] != '\0' ? info.loadedPdbName : info.loadedImageName;
    owner->reportModule(path, name, base, size, known ? symbolTypeText(info.symType) : "-unknown-",
                        pdb, version);
}

bool WalkerState::enumerateByToolHelp() {
    const ToolHelpLibrary& library = stackLibraries().toolHelp;
    if (library.handle == nullptr)
        return false;
    const platform::Snapshot snapshot =
        library.createToolhelp32Snapshot(platform::kSnapModules, processId);
    if (snapshot == platform::kNoSnapshot)
        return false;
    const SnapshotCloser closer(snapshot);
    platform::ModuleEntry32 entry = {};
    entry.size = sizeof entry;
    int seen = 0;
    for (auto more = library.module32First(snapshot, &entry); more != 0;
         more = library.module32Next(snapshot, &entry)) {
        loadAndReport(entry.path, entry.name, reinterpret_cast<std::uintptr_t>(entry.base),
                      entry.imageSize, false);
        ++seen;
    }
    return seen > 0;
}

bool WalkerState::enumerateByProcessStatus() {
    const PsapiLibrary& library = stackLibraries().processStatus;
    if (library.handle == nullptr)
        return false;
    const auto modules = makeBuffer<ModuleHandle>(kBufferSize);
    const auto path = makeBuffer<char>(kBufferSize);
    const auto name = makeBuffer<char>(kBufferSize);
    std::uint32_t needed = 0;
    if (modules == nullptr || path == nullptr || name == nullptr ||
        library.enumProcessModules(process, modules.get(), kBufferSize, &needed) == 0 ||
        needed > kBufferSize)
        return false;
    const std::uint32_t count = needed / sizeof(ModuleHandle);
    for (std::uint32_t i = 0; i < count; ++i) {
        platform::ModuleInformation information = {};
        path[0] = name[0] = '\0';
        library.getModuleInformation(process, modules[i], &information, sizeof information);
        library.getModuleFileNameExA(process, modules[i], path.get(), kBufferSize);
        library.getModuleBaseNameA(process, modules[i], name.get(), kBufferSize);
        loadAndReport(path.get(), name.get(), reinterpret_cast<std::uintptr_t>(information.base),
                      information.imageSize, true);
    }
    return count > 0;
}

bool WalkerState::enumerateModules() {
    return enumerateByToolHelp() || enumerateByProcessStatus();
}

} // namespace velt::callstack
