// The page cache behind NewFileMap: which parts of the file are mapped, and when each was used.

#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "libn/MappableStorage.h"
#include "libn/fileMap.h"

namespace libn {

FileMapState& stateOf(NewFileMap& map);

// Pages begin at multiples of this and have sizes in multiples of it.
inline constexpr std::uint64_t kPageUnit = 65536;

// Memory that is mapped by other means; nothing writes it.
extern std::uint64_t aweTotalSize;

struct Page {
    std::int64_t offset;
    std::uint64_t size;
    char* ptr; // null while the page is being removed
    std::uint64_t lastUsed;

    bool holds(std::uint64_t pos) const { return pos - static_cast<std::uint64_t>(offset) < size; }
};

struct FileMapState {
    FileMapState() { m_recentPages.reserve(kRecentPages); }

    // Where position `pos` is mapped and how many of `size` bytes follow there.
    struct Place {
        char* pointer;
        std::uint64_t available;
    };
    Place getPtr(std::uint64_t pos, std::uint64_t size) {
        for (Page* page : m_recentPages)
            if (page->holds(pos))
                return use(*page, pos, size);
        return getOtherPtr(pos, size);
    }

    // Calls each(pointer, bytes) for the mapped pieces of a range, in order.
    template <class Each>
    void forEachPiece(std::uint64_t pos, std::uint64_t left, Each each) {
        while (left != 0) {
            const Place place = getPtr(pos, left);
            each(place.pointer, place.available);
            pos += place.available;
            left -= place.available;
        }
    }

    // Unmaps everything.  Where that fails, what could not be unmapped stays a page.
    void clearPages();

    static constexpr std::size_t kRecentPages = 5;

    std::uint64_t m_memUsage = 0; // the sizes of all pages
    std::string m_name;           // for the usage report
    std::uint64_t m_maxMemUsage = 0;
    std::uint64_t m_tick = 0; // orders the accesses
    std::uint64_t m_lastReportedUsage = 0;
    std::unique_ptr<MappableStorage> m_storage; // null until the first open
    std::vector<Page> m_pages;                  // by offset
    std::vector<Page*> m_recentPages;           // into m_pages, the latest promoted in front
    bool m_awe = false;
    bool m_reportUsage = true;

  private:
    struct Compaction;

    Place use(Page& page, std::uint64_t pos, std::uint64_t size) {
        page.lastUsed = m_tick++;
        const std::uint64_t inside = pos - static_cast<std::uint64_t>(page.offset);
        return {page.ptr + inside, std::min(size, page.size - inside)};
    }

    Place getOtherPtr(std::uint64_t pos, std::uint64_t size);
    Page mapPage(std::uint64_t pos, std::uint64_t size);
    Page& insertPage(const Page& page);
    void unmapPage(Page& page);
    void evict(std::uint64_t need);
    void dropOverlapped(std::int64_t offset, std::int64_t end);
    void reportUsage();
};

} // namespace libn
