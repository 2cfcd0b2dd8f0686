// The library that reads symbols and lines of ELF files, found at run time: hosts without it do
// without stack reports.

#pragma once

#include <elfutils/libdwfl.h>

namespace platform {

struct DwarfCalls {
    decltype(&::dwfl_begin) begin;
    decltype(&::dwfl_end) end;
    decltype(&::dwfl_report_begin_add) reportBegin;
    decltype(&::dwfl_report_end) reportEnd;
    decltype(&::dwfl_report_elf) reportElf;
    decltype(&::dwfl_module_getsymtab) symbolCount;
    decltype(&::dwfl_module_addrinfo) symbolAt;
    decltype(&::dwfl_module_getdwarf) debugInfo;
    decltype(&::dwfl_module_getsrc) lineAt;
    decltype(&::dwfl_lineinfo) lineInfo;
    decltype(&::dwfl_module_addrdie) unitAt;
    decltype(&::dwarf_haspc) covers;
    decltype(&::dwfl_module_info) moduleInfo;
    decltype(&::dwfl_build_id_find_debuginfo) findDebugInfo;
};

// The library's functions; null where it is not installed.  Loaded by the first call, which is made
// while this library is loaded.
const DwarfCalls* dwarfCalls() noexcept;

} // namespace platform
