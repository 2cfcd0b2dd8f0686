#include "diagnostics/stackFixture.h"

#ifdef _WIN32
#  include <windows.h>
#else
#  include <ucontext.h>
#endif

#include <memory>

#include "support/countedNew.h"

namespace {

using namespace platform;

FakeDebugHelp* help = nullptr;
int handle = 0; // its address is the handle of all libraries

std::string hex(std::uint64_t value) {
    char text[32];
    std::snprintf(text, sizeof text, "%llx", static_cast<unsigned long long>(value));
    return text;
}

// Notes a call; false where it is to fail.
bool called(const std::string& name, const std::string& arguments = {}) {
    help->calls.push_back(arguments.empty() ? name : name + " " + arguments);
    if (help->failing.count(name) == 0)
        return true;
    setLastError(help->failure);
    return false;
}

// The same for a function that is given a process.
bool called(ProcessHandle process, const std::string& name, const std::string& arguments = {}) {
    help->processes.insert(process);
    return called(name, arguments);
}

void copy(char* out, std::size_t size, const std::string& text) {
    std::snprintf(out, size, "%s", text.c_str());
}

const FakeModule* moduleAt(std::uint64_t address) {
    for (const FakeModule& module : help->modules)
        if (address >= module.base && address - module.base < module.size)
            return &module;
    return nullptr;
}

std::int32_t symInitialize(ProcessHandle process, const char* path, std::int32_t invade) {
    return called(process, "SymInitialize", path == nullptr && invade == 0 ? "" : "with arguments");
}
std::int32_t symCleanup(ProcessHandle process) {
    return called(process, "SymCleanup");
}
std::uint32_t symGetOptions() {
    called("SymGetOptions");
    return help->options;
}
std::uint32_t symSetOptions(std::uint32_t options) {
    called("SymSetOptions", hex(options));
    return help->options = options;
}
void* functionTable(ProcessHandle, std::uint64_t) {
    return nullptr;
}
std::uint64_t moduleBase(ProcessHandle, std::uint64_t) {
    return 0;
}

std::int32_t stackWalk64(std::uint32_t machine, ProcessHandle process, void* thread,
                         StackFrame64* frame, void* context, MemoryReader reader,
                         FunctionTableAccess access, ModuleBaseReader base, void* translate) {
    const bool whole = machine == 0x8664 && reader == debugCalls.readMemory &&
                       access == functionTable && base == moduleBase && translate == nullptr;
    if (help->next == 0) {
        help->firstFrame = *frame;
        std::memcpy(&help->context, context, sizeof help->context);
    }
    help->threads.insert(thread);
    if (!called(process, "StackWalk64", whole ? "" : "with other arguments") ||
        help->next >= help->frames.size())
        return 0;
    const FakeFrame& next = help->frames[help->next++];
    frame->programCounter.offset = next.programCounter;
    frame->returnAddress.offset = next.returnAddress;
    frame->frame.offset = next.frame;
    return 1;
}

std::int32_t symGetLine(ProcessHandle process, std::uint64_t address, std::uint32_t* displacement,
                        LineRecord* line) {
    const auto found = help->symbols.find(address);
    if (!called(process, "SymGetLineFromAddr64", hex(address)) || line->size != 40 ||
        found == help->symbols.end() || found->second.file.empty())
        return 0;
    *displacement = found->second.lineDisplacement;
    line->file = found->second.file.data();
    line->number = found->second.line;
    return 1;
}

std::int32_t symGetSymbol(ProcessHandle process, std::uint64_t address, std::uint64_t* displacement,
                          SymbolRecord* symbol) {
    const auto found = help->symbols.find(address);
    if (!called(process, "SymGetSymFromAddr64", hex(address)) || symbol->size != 32 ||
        symbol->maxNameLength != 1024 || found == help->symbols.end() || found->second.name.empty())
        return 0;
    *displacement = found->second.displacement;
    copy(symbol->name, 1024, found->second.name);
    return 1;
}

std::int32_t symGetModuleInfo(ProcessHandle process, std::uint64_t address, void* record) {
    auto& info = *static_cast<ModuleInfo64*>(record);
    const std::uint32_t size = info.size;
    help->recordSizes.push_back(size);
    const FakeModule* const module = moduleAt(address);
    if (!called(process, "SymGetModuleInfo64", std::to_string(size)) ||
        size > help->longestRecord || module == nullptr)
        return 0;
    info.base = module->base;
    info.symType = module->symType;
    copy(info.moduleName, sizeof info.moduleName, module->name);
    copy(info.loadedImageName, sizeof info.loadedImageName, module->image);
    if (size == kModuleInfoLong)
        copy(info.loadedPdbName, sizeof info.loadedPdbName, module->pdb);
    std::memset(static_cast<char*>(record) + size, 0xAB, help->writtenBehind);
    return 1;
}

std::uint32_t unDecorate(const char* name, char* out, std::uint32_t size, std::uint32_t flags) {
    if (!called("UnDecorateSymbolName", std::to_string(flags)))
        return 0;
    const auto found = help->undecorated.find(std::string(name) + " " + std::to_string(flags));
    copy(out, size, found != help->undecorated.end() ? found->second : name);
    return static_cast<std::uint32_t>(std::strlen(out));
}

std::uint64_t symLoadModule(ProcessHandle process, void* file, const char* path, const char* name,
                            std::uint64_t base, std::uint32_t size) {
    if (!called(process, "SymLoadModule64",
                std::string(path) + " " + name + " " + hex(base) + " " + hex(size) +
                    (file != nullptr ? " with a file" : "")))
        return 0;
    return base;
}

// ---- modules

Snapshot createSnapshot(std::uint32_t flags, std::uint32_t processId) {
    return called("CreateToolhelp32Snapshot",
                  std::to_string(flags) + " " + std::to_string(processId))
               ? &handle
               : kNoSnapshot;
}
std::int32_t moduleNext(Snapshot, ModuleEntry32* entry) {
    called("Module32Next");
    if (entry->size != 568 || help->nextModule >= help->modules.size())
        return 0;
    const FakeModule& module = help->modules[help->nextModule++];
    copy(entry->path, sizeof entry->path, module.path);
    copy(entry->name, sizeof entry->name, module.name);
    entry->base = reinterpret_cast<unsigned char*>(module.base);
    entry->imageSize = module.size;
    return 1;
}
std::int32_t moduleFirst(Snapshot snapshot, ModuleEntry32* entry) {
    if (!called("Module32First"))
        return 0;
    help->nextModule = 0;
    return moduleNext(snapshot, entry);
}
void closeSnapshot(Snapshot) {
    called("CloseHandle");
}

std::int32_t enumModules(ProcessHandle process, ModuleHandle* out, std::uint32_t size,
                         std::uint32_t* needed) {
    if (!called(process, "EnumProcessModules", std::to_string(size)))
        return 0;
    *needed = static_cast<std::uint32_t>(help->modules.size() * sizeof *out);
    for (std::size_t i = 0; i < help->modules.size() && i < size / sizeof *out; ++i)
        out[i] = &help->modules[i];
    return 1;
}
std::uint32_t moduleFileName(ProcessHandle process, ModuleHandle module, char* out,
                             std::uint32_t size) {
    if (!called(process, "GetModuleFileNameExA", std::to_string(size)))
        return 0;
    copy(out, size, static_cast<FakeModule*>(module)->path);
    return 1;
}
std::uint32_t moduleBaseName(ProcessHandle process, ModuleHandle module, char* out,
                             std::uint32_t size) {
    if (!called(process, "GetModuleBaseNameA", std::to_string(size)))
        return 0;
    copy(out, size, static_cast<FakeModule*>(module)->name);
    return 1;
}
std::int32_t moduleInformation(ProcessHandle process, ModuleHandle module, ModuleInformation* out,
                               std::uint32_t size) {
    if (!called(process, "GetModuleInformation", std::to_string(size)))
        return 0;
    const auto& found = *static_cast<FakeModule*>(module);
    *out = {reinterpret_cast<void*>(found.base), found.size, nullptr};
    return 1;
}

// ---- versions

std::uint32_t versionSize(const char*, std::uint32_t* out) {
    *out = 7;
    return called("GetFileVersionInfoSizeA") ? static_cast<std::uint32_t>(help->version.size()) : 0;
}
std::int32_t versionBlock(const char*, std::uint32_t, std::uint32_t size, void* out) {
    if (!called("GetFileVersionInfoA"))
        return 0;
    std::memcpy(out, help->version.data(), size);
    return 1;
}
std::int32_t versionValue(const void* block, const char* name, void** value, std::uint32_t* size) {
    if (!called("VerQueryValueA", name))
        return 0;
    *value = const_cast<void*>(block);
    *size = static_cast<std::uint32_t>(help->version.size());
    return 1;
}

// A function as the tables have it, whose own calls of operator new are counted.
template <auto Function>
constexpr auto kCounted = nullptr;
template <class Result, class... Arguments, Result (*Function)(Arguments...)>
constexpr auto kCounted<Function> = +[](Arguments... arguments) {
    struct Counter {
        ~Counter() { help->news += countedNews() - before; }
        std::size_t before = countedNews();
    } counter;
    return Function(arguments...);
};

const DebugHelpFunctions kDebugHelp = {kCounted<symInitialize>,
                                       kCounted<symCleanup>,
                                       kCounted<stackWalk64>,
                                       kCounted<symGetOptions>,
                                       kCounted<symSetOptions>,
                                       functionTable,
                                       kCounted<symGetLine>,
                                       moduleBase,
                                       kCounted<symGetModuleInfo>,
                                       kCounted<symGetSymbol>,
                                       kCounted<unDecorate>,
                                       kCounted<symLoadModule>,
                                       nullptr};
const ToolHelpFunctions kToolHelp = {kCounted<createSnapshot>, kCounted<moduleFirst>,
                                     kCounted<moduleNext>};
const ProcessStatusFunctions kProcessStatus = {kCounted<enumModules>, kCounted<moduleFileName>,
                                               kCounted<moduleBaseName>,
                                               kCounted<moduleInformation>};

} // namespace

StackFixture::StackFixture()
    : m_libraries(stackLibraries()),
      m_debugCalls(debugCalls),
      m_usable(velt::callstack::moduleInfoV3Usable) {
    ::help = new FakeDebugHelp;
    velt::callstack::moduleInfoV3Usable = true;
    StackLibraries& libraries = stackLibraries();
    static_cast<DebugHelpFunctions&>(libraries.debugHelp) = kDebugHelp;
    static_cast<ToolHelpFunctions&>(libraries.toolHelp) = kToolHelp;
    static_cast<ProcessStatusFunctions&>(libraries.processStatus) = kProcessStatus;
    libraries.debugHelp.handle = libraries.toolHelp.handle = libraries.processStatus.handle =
        &handle;
    debugCalls.closeSnapshot = kCounted<closeSnapshot>;
    debugCalls.versionSize = kCounted<versionSize>;
    debugCalls.versionBlock = kCounted<versionBlock>;
    debugCalls.versionValue = kCounted<versionValue>;
}

StackFixture::~StackFixture() {
    stackLibraries() = m_libraries;
    debugCalls = m_debugCalls;
    velt::callstack::moduleInfoV3Usable = m_usable;
    delete ::help;
    ::help = nullptr;
}

FakeDebugHelp& StackFixture::help() {
    return *::help;
}

std::vector<std::string> StackFixture::walk(const void* context, bool* result) {
    const auto output = std::make_shared<RecordingOutput>();
    velt::callstack::StackWalker walker(1, debugCalls.currentProcess());
    walker.setOutput(output);
    const bool walked = walker.walk(context, currentThread());
    if (result != nullptr)
        *result = walked;
    return output->lines;
}

std::vector<std::string> StackFixture::walkFrames() {
    const ThreadContext context = contextOf(0x1000, 0x2000);
    std::vector<std::string> frames;
    bool inside = false;
    for (const std::string& line : walk(&context)) {
        if (line == "<<============ Call Stack ============")
            inside = false;
        if (inside)
            frames.push_back(line);
        if (line == ">>============ Call Stack ============")
            inside = true;
    }
    return frames;
}

ThreadContext StackFixture::contextOf(std::uint64_t instruction, std::uint64_t stack) {
    ThreadContext context = {};
#ifdef _WIN32
    reinterpret_cast<CONTEXT&>(context).Rip = instruction;
    reinterpret_cast<CONTEXT&>(context).Rsp = stack;
#else
    greg_t* const registers = reinterpret_cast<ucontext_t&>(context).uc_mcontext.gregs;
    registers[REG_RIP] = static_cast<greg_t>(instruction);
    registers[REG_RSP] = static_cast<greg_t>(stack);
#endif
    return context;
}

void StackFixture::setFramePointer(ThreadContext& context, std::uint64_t value) {
#ifdef _WIN32
    reinterpret_cast<CONTEXT&>(context).Rbp = value;
#else
    reinterpret_cast<ucontext_t&>(context).uc_mcontext.gregs[REG_RBP] = static_cast<greg_t>(value);
#endif
}
