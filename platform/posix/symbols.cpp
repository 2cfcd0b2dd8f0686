// Symbols and lines by libdw.

#include "symbols.h"

#include <algorithm>
#include <vector>

#include "dwarf.h"
#include "platform/debugHelp.h"

namespace platform {

namespace {

// Never called: each module is reported with its file.
int findNoElf(Dwfl_Module*, void**, const char*, Dwarf_Addr, char**, Elf**) {
    return -1;
}

// The form of the file names, and where separate debug information lies: the library's defaults.
char* defaultFolders = nullptr;

class DwarfSymbols : public Symbols {
  public:
    ~DwarfSymbols() override {
        if (m_session != nullptr)
            dwarfCalls()->end(m_session);
    }

    bool open() {
        m_callbacks = {findNoElf, dwarfCalls()->findDebugInfo, nullptr, &defaultFolders};
        m_session = dwarfCalls()->begin(&m_callbacks);
        return m_session != nullptr;
    }

    bool add(const char* path, const char* name, std::uint64_t base, std::uint32_t size) override;
    const SymbolModule* moduleAt(std::uint64_t address) const override;
    bool symbolAt(std::uint64_t address, FoundSymbol& out) const override;
    bool lineAt(std::uint64_t address, FoundLine& out) const override;

  private:
    Dwfl_Callbacks m_callbacks = {};
    Dwfl* m_session = nullptr;
    std::vector<SymbolModule> m_modules; // by base
};

std::uint32_t symTypeOf(Dwfl_Module* module) {
    if (module == nullptr)
        return kSymNone;
    Dwarf_Addr bias = 0;
    if (dwarfCalls()->debugInfo(module, &bias) != nullptr)
        return kSymDebug;
    return dwarfCalls()->symbolCount(module) > 1 ? kSymExport : kSymNone;
}

// Empty where the module's own file has the debug information.
const char* debugFileOf(Dwfl_Module* module) {
    const char* file = nullptr;
    dwarfCalls()->moduleInfo(module, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &file);
    return file != nullptr ? file : "";
}

// Whether debug information was made for an address: one of a part without any, between others that
// have some, is otherwise given the last line in front of it.
bool isDescribed(Dwfl_Module* module, std::uint64_t address) {
    Dwarf_Addr bias = 0;
    Dwarf_Die* const unit = dwarfCalls()->unitAt(module, address, &bias);
    return unit != nullptr && dwarfCalls()->covers(unit, address - bias) > 0;
}

bool startsBehind(std::uint64_t address, const SymbolModule& module) {
    return address < module.base;
}

bool DwarfSymbols::add(const char* path, const char* name, std::uint64_t base, std::uint32_t size) {
    const auto behind = std::upper_bound(m_modules.begin(), m_modules.end(), base, startsBehind);
    if (behind != m_modules.begin() && behind[-1].base == base)
        return false;
    const auto module = m_modules.insert(behind, {path, name, {}, base, size, kSymNone, nullptr});
    dwarfCalls()->reportBegin(m_session);
    module->symbols = dwarfCalls()->reportElf(m_session, path, path, -1, base, false);
    dwarfCalls()->reportEnd(m_session, nullptr, nullptr);
    module->symType = symTypeOf(module->symbols);
    if (module->symType == kSymDebug)
        module->debugFile = debugFileOf(module->symbols);
    return true;
}

const SymbolModule* DwarfSymbols::moduleAt(std::uint64_t address) const {
    const auto behind = std::upper_bound(m_modules.begin(), m_modules.end(), address, startsBehind);
    if (behind == m_modules.begin() || address - behind[-1].base >= behind[-1].size)
        return nullptr;
    return &behind[-1];
}

bool DwarfSymbols::symbolAt(std::uint64_t address, FoundSymbol& out) const {
    const SymbolModule* const module = moduleAt(address);
    if (module == nullptr || module->symbols == nullptr)
        return false;
    GElf_Off offset = 0;
    GElf_Sym symbol = {};
    const char* const name = dwarfCalls()->symbolAt(module->symbols, address, &offset, &symbol,
                                                    nullptr, nullptr, nullptr);
    if (name == nullptr)
        return false;
    out = {name, address - offset};
    return true;
}

bool DwarfSymbols::lineAt(std::uint64_t address, FoundLine& out) const {
    const SymbolModule* const module = moduleAt(address);
    if (module == nullptr || module->symType != kSymDebug || !isDescribed(module->symbols, address))
        return false;
    Dwfl_Line* const line = dwarfCalls()->lineAt(module->symbols, address);
    if (line == nullptr)
        return false;
    int number = 0;
    Dwarf_Addr start = 0;
    const char* const file =
        dwarfCalls()->lineInfo(line, &start, &number, nullptr, nullptr, nullptr);
    if (file == nullptr)
        return false;
    out = {file, static_cast<std::uint32_t>(number), start};
    return true;
}

} // namespace

std::unique_ptr<Symbols> Symbols::begin() {
    if (dwarfCalls() == nullptr)
        return nullptr;
    auto symbols = std::make_unique<DwarfSymbols>();
    if (!symbols->open())
        return nullptr;
    return symbols;
}

} // namespace platform
