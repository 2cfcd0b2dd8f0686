// Finding, mapping and dropping of pages.

#include "fileMapState.h"

#include <limits>

#include "libn/FieldText.h"
#include "libn/raiseText.h"
#include "vdreader/log.h"

namespace libn {

std::uint64_t aweTotalSize = 0;

namespace {

// The page's span for `size` bytes that begin `inside` bytes behind its start: whole units.  What
// no number holds becomes the largest that does, which passes every limit.
std::uint64_t spanOf(std::uint64_t inside, std::uint64_t size) {
    constexpr std::uint64_t kRest = kPageUnit - 1;
    constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
    return (size > kMost - kRest - inside ? kMost : inside + size + kRest) & ~kRest;
}

bool isBelow(const Page& page, std::int64_t offset) {
    return page.offset < offset;
}

} // namespace

// Takes pages without a view away on every way out of its scope: an unmapping that fails leaves
// those mapped that come behind it.
struct FileMapState::Compaction {
    FileMapState& state;

    ~Compaction() {
        std::erase_if(state.m_pages, [](const Page& page) { return page.ptr == nullptr; });
        state.m_recentPages.clear();
    }
};

FileMapState::Place FileMapState::getOtherPtr(std::uint64_t pos, std::uint64_t size) {
    const auto behind = std::upper_bound(
        m_pages.begin(), m_pages.end(), static_cast<std::int64_t>(pos),
        [](std::int64_t position, const Page& page) { return position < page.offset; });
    if (behind != m_pages.begin() && std::prev(behind)->holds(pos)) {
        Page& page = *std::prev(behind);
        while (m_recentPages.size() > kRecentPages - 1)
            m_recentPages.pop_back();
        m_recentPages.insert(m_recentPages.begin(), &page);
        return use(page, pos, size);
    }
    Page fresh = mapPage(pos, size);
    Page* page = nullptr;
    try {
        if (m_reportUsage)
            reportUsage();
        page = &insertPage(fresh);
    } catch (...) {
        unmapPage(fresh);
        throw;
    }
    const Place place = use(*page, pos, size);
    // Deliberate: a page counts as never used until it is found again.  Pages of one pass through
    // the file so go before those that are turned back to.
    page->lastUsed = 0;
    return place;
}

Page FileMapState::mapPage(std::uint64_t pos, std::uint64_t size) {
    const std::uint64_t offset = pos & ~(kPageUnit - 1);
    const std::uint64_t span = spanOf(pos - offset, size);
    if (span > m_maxMemUsage) {
        FieldText text;
        text << "libn::FileMap memory limit exceeded" << ':' << "name()<" << m_storage->name()
             << '>' << "newPage.size<" << span << '>' << "m_maxMemUsage<" << m_maxMemUsage << '>';
        raiseText(text);
    }
    const std::uint64_t end = offset + span;
    // Deliberate: reading past the end makes the file grow, in steps of the storage and also under
    // a server.  Formats in the field are laid out by readers that find a file short.
    if (m_storage->needsGrow(end)) {
        clearPages();
        m_storage->createMapping(end);
    }
    if (m_memUsage + span > m_maxMemUsage)
        evict(m_memUsage - m_maxMemUsage + span);
    const auto begin = static_cast<std::int64_t>(offset);
    if (!m_storage->allowsPageOverlap())
        dropOverlapped(begin, static_cast<std::int64_t>(end));
    auto* view = static_cast<char*>(m_storage->mapPtr(offset, span));
    m_memUsage += span;
    return {begin, span, view, 0};
}

Page& FileMapState::insertPage(const Page& page) {
    m_recentPages.clear();
    const auto place = std::lower_bound(m_pages.begin(), m_pages.end(), page.offset, isBelow);
    return *m_pages.insert(place, page);
}

void FileMapState::unmapPage(Page& page) {
    m_storage->unmapPtr(page.ptr, page.size);
    if (m_memUsage >= page.size)
        m_memUsage -= page.size;
    page.ptr = nullptr;
}

void FileMapState::clearPages() {
    {
        const Compaction compaction{*this};
        for (Page& page : m_pages)
            unmapPage(page);
    }
    m_pages.shrink_to_fit();
}

void FileMapState::evict(std::uint64_t need) {
    std::vector<Page*> oldest;
    oldest.reserve(m_pages.size());
    for (Page& page : m_pages)
        oldest.push_back(&page);
    std::stable_sort(oldest.begin(), oldest.end(),
                     [](const Page* a, const Page* b) { return a->lastUsed < b->lastUsed; });
    const Compaction compaction{*this};
    // Deliberate: `need` stays, so all pages go.  Walks turn to fresh parts of a file together, and
    // the servers' limits of mapped memory are set by this.
    for (Page* page : oldest) {
        if (need == 0)
            break;
        unmapPage(*page);
    }
}

void FileMapState::dropOverlapped(std::int64_t offset, std::int64_t end) {
    auto first = std::lower_bound(m_pages.begin(), m_pages.end(), offset, isBelow);
    if (first != m_pages.begin() && std::prev(first)->holds(static_cast<std::uint64_t>(offset)))
        --first;
    const Compaction compaction{*this};
    for (; first != m_pages.end() && first->offset < end; ++first)
        unmapPage(*first);
}

void FileMapState::reportUsage() {
    const std::uint64_t change = m_memUsage > m_lastReportedUsage
                                     ? m_memUsage - m_lastReportedUsage
                                     : m_lastReportedUsage - m_memUsage;
    if (change <= m_maxMemUsage / 10)
        return;
    m_lastReportedUsage = m_memUsage;
    // Deliberate: the new page counts in the size and not yet in the number of pages.
    FieldText text;
    text << "MappableStorage: " << m_name << " pagesCount: " << m_pages.size()
         << " size: " << m_memUsage;
    if (m_awe)
        text << " aweTotalSize: " << aweTotalSize;
    event("%s", text.str().c_str());
}

} // namespace libn
