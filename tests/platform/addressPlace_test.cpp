// Modules, sections and offsets of addresses.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "platform/fault.h"

#ifdef _WIN32
#  include <windows.h>
#else
#  include <link.h>
#endif

namespace {

const int constant = 5;
int written = 5;

[[gnu::noinline]] int function() {
    return constant + written;
}

std::string fileNameOf(const platform::AddressPlace& place) {
    return std::filesystem::path(place.module).filename().string();
}

platform::AddressPlace placeAt(std::uintptr_t address) {
    return platform::placeOfAddress(reinterpret_cast<const void*>(address));
}

// Of the program's section that holds an address, by its headers; 0 if there is none.
#ifdef _WIN32
std::uint64_t sizeOfSectionWith(std::uintptr_t address) {
    const auto base = reinterpret_cast<std::uintptr_t>(::GetModuleHandleA(nullptr));
    const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + dos->e_lfanew);
    const IMAGE_SECTION_HEADER* section = IMAGE_FIRST_SECTION(headers);
    for (int i = 0; i < headers->FileHeader.NumberOfSections; ++i, ++section) {
        const std::uintptr_t start = base + section->VirtualAddress;
        const DWORD size = std::max(section->Misc.VirtualSize, section->SizeOfRawData);
        if (address >= start && address < start + size)
            return size;
    }
    return 0;
}
#else
struct SectionSearch {
    std::uintptr_t address;
    std::uint64_t size;
};

std::uint64_t sizeOfSectionWith(std::uintptr_t address) {
    SectionSearch search = {address, 0};
    const auto look = [](dl_phdr_info* info, std::size_t, void* argument) {
        auto& found = *static_cast<SectionSearch*>(argument);
        for (int i = 0; i < info->dlpi_phnum; ++i) {
            const ElfW(Phdr)& segment = info->dlpi_phdr[i];
            const std::uintptr_t start = info->dlpi_addr + segment.p_vaddr;
            if (segment.p_type == PT_LOAD && found.address >= start &&
                found.address < start + segment.p_memsz)
                found.size = segment.p_memsz;
        }
        return found.size != 0 ? 1 : 0;
    };
    ::dl_iterate_phdr(look, &search);
    return search.size;
}
#endif

} // namespace

TEST(AddressPlace, CodeOfTheProgramIsInIt) {
    EXPECT_EQ(function(), 10);
    const auto place = platform::placeOfAddress(reinterpret_cast<const void*>(&function));
    EXPECT_EQ(fileNameOf(place).substr(0, 8), "vdreader");
    EXPECT_GT(place.section, 0u);
    EXPECT_LT(place.section, 20u);
    const auto next = placeAt(reinterpret_cast<std::uintptr_t>(&function) + 3);
    EXPECT_EQ(next.section, place.section);
    EXPECT_EQ(next.offset, place.offset + 3);
    EXPECT_STREQ(next.module, place.module);
}

TEST(AddressPlace, CodeAndDataAreInDifferentSections) {
    const auto code = platform::placeOfAddress(reinterpret_cast<const void*>(&function));
    const auto data = platform::placeOfAddress(&written);
    EXPECT_STREQ(code.module, data.module);
    EXPECT_NE(code.section, data.section);
}

TEST(AddressPlace, CodeOfALibraryIsInAModule) {
    const auto place = platform::placeOfAddress(reinterpret_cast<const void*>(&std::atoi));
    EXPECT_NE(place.module[0], '\0');
    EXPECT_GT(place.section, 0u);
}

TEST(AddressPlace, AddressOutsideAllModulesHasNone) {
    const int local = 0;
    void* const block = std::malloc(100);
    for (const void* address :
         {static_cast<const void*>(nullptr), reinterpret_cast<const void*>(16),
          reinterpret_cast<const void*>(~std::uintptr_t{0}), static_cast<const void*>(&local),
          static_cast<const void*>(block)}) {
        const auto place = platform::placeOfAddress(address);
        EXPECT_STREQ(place.module, "") << address;
        EXPECT_EQ(place.section, 0u) << address;
        EXPECT_EQ(place.offset, 0u) << address;
    }
    std::free(block);
}

// Sections of a module do not meet: between two of them lies what belongs to the lower one's end.
TEST(AddressPlace, EndOfASectionBelongsToIt) {
    const auto address = reinterpret_cast<std::uintptr_t>(&written);
    const auto inside = placeAt(address);
    ASSERT_GT(inside.section, 0u);
    const std::uint64_t size = sizeOfSectionWith(address);
    ASSERT_GT(size, inside.offset);
    const std::uintptr_t end = address - inside.offset + size;
    EXPECT_EQ(placeAt(end).section, inside.section);
    EXPECT_EQ(placeAt(end).offset, size);
    EXPECT_NE(placeAt(end + 1).section, inside.section);
}
