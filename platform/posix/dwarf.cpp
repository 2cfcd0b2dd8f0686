// Finds the library of symbols and lines.

#include "dwarf.h"

#include <dlfcn.h>

namespace platform {

namespace {

template <class Function>
bool take(void* library, const char* name, Function*& function) {
    function = reinterpret_cast<Function*>(::dlsym(library, name));
    return function != nullptr;
}

bool resolve(DwarfCalls& calls) {
    void* const library = ::dlopen("libdw.so.1", RTLD_LAZY | RTLD_LOCAL);
    return library != nullptr && take(library, "dwfl_begin", calls.begin) &&
           take(library, "dwfl_end", calls.end) &&
           take(library, "dwfl_report_begin_add", calls.reportBegin) &&
           take(library, "dwfl_report_end", calls.reportEnd) &&
           take(library, "dwfl_report_elf", calls.reportElf) &&
           take(library, "dwfl_module_getsymtab", calls.symbolCount) &&
           take(library, "dwfl_module_addrinfo", calls.symbolAt) &&
           take(library, "dwfl_module_getdwarf", calls.debugInfo) &&
           take(library, "dwfl_module_getsrc", calls.lineAt) &&
           take(library, "dwfl_lineinfo", calls.lineInfo) &&
           take(library, "dwfl_module_addrdie", calls.unitAt) &&
           take(library, "dwarf_haspc", calls.covers) &&
           take(library, "dwfl_module_info", calls.moduleInfo) &&
           take(library, "dwfl_build_id_find_debuginfo", calls.findDebugInfo);
}

} // namespace

const DwarfCalls* dwarfCalls() noexcept {
    static DwarfCalls calls = {};
    static const bool found = resolve(calls);
    return found ? &calls : nullptr;
}

} // namespace platform
