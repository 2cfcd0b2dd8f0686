// Where an address lies, by the section table of the image that is mapped there.

#include <windows.h>

#include <algorithm>
#include <cstring>

#include "platform/fault.h"

namespace platform {

namespace {

// The image that holds the address, 0 if it is in none.
std::uintptr_t imageOf(const void* address) {
    MEMORY_BASIC_INFORMATION memory = {};
    static_assert(sizeof memory == 48);
    if (::VirtualQuery(address, &memory, sizeof memory) != sizeof memory)
        return 0;
    auto base = reinterpret_cast<std::uintptr_t>(memory.AllocationBase);
    if ((base & 0xfff) == 0xfff)
        ++base;
    return base;
}

// The headers of an image; null where there are none.
const IMAGE_NT_HEADERS64* headersOf(std::uintptr_t base) {
    const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    if (dos->e_magic != IMAGE_DOS_SIGNATURE)
        return nullptr;
    const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + dos->e_lfanew);
    return headers->Signature == IMAGE_NT_SIGNATURE ? headers : nullptr;
}

// The number from 1 of the section with that distance from the image's start, 0 if there is none.
std::uint32_t sectionOf(const IMAGE_NT_HEADERS64& headers, std::uint64_t distance,
                        std::uint64_t& offset) {
    const IMAGE_SECTION_HEADER* section = IMAGE_FIRST_SECTION(&headers);
    for (std::uint32_t i = 0; i < headers.FileHeader.NumberOfSections; ++i, ++section) {
        const std::uint64_t start = section->VirtualAddress;
        const std::uint64_t size = std::max(section->Misc.VirtualSize, section->SizeOfRawData);
        // Deliberate: the end counts as inside.  Readers of reports know addresses between two
        // sections by the number of the lower one.
        if (distance >= start && distance <= start + size) {
            offset = distance - start;
            return i + 1;
        }
    }
    return 0;
}

} // namespace

AddressPlace placeOfAddress(const void* address) noexcept {
    AddressPlace place = {};
    const std::uintptr_t base = imageOf(address);
    if (base == 0)
        return place;
    char name[sizeof place.module];
    if (::GetModuleFileNameA(reinterpret_cast<HMODULE>(base), name, sizeof name) == 0)
        return place;
    name[sizeof name - 1] = '\0';
    const IMAGE_NT_HEADERS64* headers = headersOf(base);
    if (headers == nullptr)
        return place;
    const std::uint64_t distance = reinterpret_cast<std::uintptr_t>(address) - base;
    place.section = sectionOf(*headers, distance, place.offset);
    if (place.section != 0)
        std::memcpy(place.module, name, std::strlen(name) + 1);
    return place;
}

} // namespace platform
