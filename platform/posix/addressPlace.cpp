// Where an address lies, by the list of the loader: the loadable segments of a module count as its
// sections.

#include <link.h>
#include <algorithm>
#include <cstring>

#include "platform/calls.h"
#include "platform/fault.h"

namespace platform {

namespace {

struct Search {
    std::uintptr_t address;
    AddressPlace& place;
    bool programSeen = false; // the loader names it first, and without its path
};

void nameModule(AddressPlace& place, const char* name, bool program) {
    if (*name == '\0' && program) {
        if (calls.executablePath(place.module, sizeof place.module) == 0)
            place.module[0] = '\0';
        return;
    }
    const std::size_t length = std::min(std::strlen(name), sizeof place.module - 1);
    std::memcpy(place.module, name, length);
    place.module[length] = '\0';
}

// Not 0 where the address was found.
int lookInto(dl_phdr_info* info, std::size_t, void* argument) {
    Search& search = *static_cast<Search*>(argument);
    const bool program = !search.programSeen;
    search.programSeen = true;
    std::uint32_t section = 0;
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        const ElfW(Phdr)& segment = info->dlpi_phdr[i];
        if (segment.p_type != PT_LOAD)
            continue;
        ++section;
        const std::uintptr_t start = info->dlpi_addr + segment.p_vaddr;
        const std::uintptr_t size = std::max(segment.p_memsz, segment.p_filesz);
        // Deliberate: the end counts as inside.  Reports of the two systems are read by one tool.
        if (search.address < start || search.address - start > size)
            continue;
        nameModule(search.place, info->dlpi_name, program);
        if (search.place.module[0] == '\0')
            return 1;
        search.place.section = section;
        search.place.offset = search.address - start;
        return 1;
    }
    return 0;
}

} // namespace

AddressPlace placeOfAddress(const void* address) noexcept {
    AddressPlace place = {};
    Search search{reinterpret_cast<std::uintptr_t>(address), place};
    ::dl_iterate_phdr(lookInto, &search);
    return place;
}

} // namespace platform
