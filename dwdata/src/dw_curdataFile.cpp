// The file behind TCurrentData: opening, loading and laying out.

#include <algorithm>
#include <cstring>
#include <mutex>

#include "dwdata/dw_curdata.h"
#include "libn/FieldText.h"
#include "libn/raiseText.h"
#include "libn/viewCopy.h"
#include "vdreader/errors.hpp"
#include "vdreader/log.h"
#include "vdreader/raise.h"

using FileWorkLibrary::FILE_BLOCK;
using FileWorkLibrary::file_point;
using FileWorkLibrary::kMostFileBytes;
using FileWorkLibrary::TMappedPage;
using Storage = TCurrentData::TCurrentDataFileStorage;

namespace {

constexpr std::uint32_t kSlotSize = sizeof(VD_DATA_CUST);
// Slots are asked for by signed numbers.
constexpr std::uint64_t kMostSlots = std::uint64_t{1} << 31;

// Whether `count` blocks with payloads of `size` bytes from `first` on end at kMostFileBytes or
// before.
bool fits(const file_point& first, std::uint64_t size, std::uint64_t count) {
    return first.offset() <= kMostFileBytes &&
           count * (size + FILE_BLOCK::kOverhead) <= kMostFileBytes - first.offset();
}

// The number of the first record of a page of the journal; 0 where no record could stand.
std::uint32_t firstNumber(const FileWorkLibrary::TPage& page) {
    constexpr std::size_t kPlace = offsetof(ENC_DATA, dataField1);
    std::uint32_t number = 0;
    if (page.payloadRoom() >= kPlace + sizeof number)
        libn::viewCopy(&number, page.payload() + kPlace, sizeof number);
    return number;
}

} // namespace

Storage::~TCurrentDataFileStorage() {
    Storage::stampClosed();
    headerPage.reset();
    currentPage.reset();
    for (std::uint32_t i = 0; i < dataPages.length(); ++i)
        delete dataPages[i];
}

void Storage::stampClosed() {
    // Forgotten first: a fault at the write must not come again in the destructor.
    CURDATA_HEADER* const stamped = header;
    header = nullptr;
    // Deliberate: a pure reader stamps too.  The server counts on the word telling that somebody
    // who had the file is gone.
    if (stamped != nullptr)
        stamped->closeStamp = CURDATA_HEADER::kClosedStamp;
}

bool Storage::load() {
    // Deliberate: a file whose size cannot be told counts as empty, like one that could not be
    // opened, and is laid out.  Components of the family start on a missing file this way.
    if (fileSize() == 0)
        return layOut();
    dropPages();
    unmapAll();
    pageIndex.clear();
    renewMapping();

    mapHeader();
    header->closeStamp = CURDATA_HEADER::kOpenStamp;
    // A copy, since the server may go on while it is worked through.
    CURDATA_HEADER told;
    libn::viewCopy(&told, header, sizeof told);
    if (std::memcmp(told.signature, CURDATA_HEADER::kSignature, sizeof told.signature) != 0)
        dwraise_ex(kCurDataSource, __LINE__, "File type is incorrect");
    checkHeader(told);
    mapDataPages(told);
    indexEventPages(told);
    currentPage = mapPage(told.currentEventPage, told.eventPageSize);
    return true;
}

// A mapping ends where the file ended when it was made, and the allocator makes another one only to
// let the file grow; a server may have done that.
void Storage::renewMapping() {
    const std::lock_guard guard(lock);
    if (storage.isMapped())
        storage.createMapping(storage.size());
}

bool Storage::layOut() {
    try {
        dropPages();
        if (!reset())
            raiseErrorText();
        mapHeader();
        writeHeader();
        mapDataPages(*header);
        pageIndex.clear();
        const file_point first = header->currentEventPage;
        currentPage = mapPage(first, header->eventPageSize);
        pageIndex.insert(0, first);
        header->eventPageCount = 1;
        lastPoint.exchange(first.position());
        return true;
    } catch (const CEmptyError& failure) {
        event("Error while reseting current data: %s", failure.GetErrorDesc());
        return false;
    }
}

// The views stay with the allocator.
void Storage::dropPages() {
    slotCount = 0;
    slotPages.clear();
    currentPage.reset();
    for (std::uint32_t i = 0; i < dataPages.length(); ++i)
        delete dataPages[i];
    dataPages.clear();
    headerPage.reset();
    header = nullptr;
}

void Storage::mapPage(const file_point& point, std::uint32_t size, TMappedPage& page) {
    if (!mapBlock(point, size, page))
        raiseErrorText();
}

Storage::MappedPage Storage::mapPage(const file_point& point, std::uint32_t size) {
    auto page = std::make_unique<TMappedPage>();
    mapPage(point, size, *page);
    return page;
}

void Storage::mapHeader() {
    headerPage = mapPage(file_point::at(0), sizeof(CURDATA_HEADER));
    header = reinterpret_cast<CURDATA_HEADER*>(headerPage->payload());
}

// Impossible numbers are told before anything is mapped by them.
void Storage::checkHeader(const CURDATA_HEADER& h) {
    libn::FieldText text;
    text << "TCurrentData load:";
    if (h.dataPageSize < kSlotSize) {
        text << "dataPageSize<" << h.dataPageSize << '>';
    } else if (h.dataPageCount < 0) {
        text << "dataPageCount<" << h.dataPageCount << '>';
    } else if (h.eventPageCount < 0) {
        text << "eventPageCount<" << h.eventPageCount << '>';
    } else if (!fits(h.firstDataPage, h.dataPageSize, h.dataPageCount)) {
        text << "firstDataPage<" << h.firstDataPage.position() << ">dataPageSize<" << h.dataPageSize
             << ">dataPageCount<" << h.dataPageCount << '>';
    } else if (!fits(h.firstEventPage, h.eventPageSize, h.eventPageCount)) {
        text << "firstEventPage<" << h.firstEventPage.position() << ">eventPageSize<"
             << h.eventPageSize << ">eventPageCount<" << h.eventPageCount << '>';
    } else if (!fits(h.currentEventPage, h.eventPageSize, 1)) {
        text << "currentEventPage<" << h.currentEventPage.position() << ">eventPageSize<"
             << h.eventPageSize << '>';
    } else {
        return;
    }
    libn::raiseText(text);
}

void Storage::mapDataPages(const CURDATA_HEADER& h) {
    const std::uint32_t size = h.dataPageSize;
    const auto count = static_cast<std::uint32_t>(h.dataPageCount);
    slotsPerPage = size / kSlotSize;
    perPageInverse = ((std::uint64_t{1} << 63) + slotsPerPage - 1) / slotsPerPage;
    std::uint64_t point = h.firstDataPage.offset();
    for (std::uint32_t i = 0; i < count; ++i) {
        MappedPage page = mapPage(file_point::at(point), size);
        slotPages.push_back(page->payload());
        dataPages[i] = page.get();
        static_cast<void>(page.release());
        point += std::uint64_t{size} + FILE_BLOCK::kOverhead;
    }
    slotCount =
        static_cast<std::uint32_t>(std::min(std::uint64_t{count} * slotsPerPage, kMostSlots));
}

void Storage::indexEventPages(const CURDATA_HEADER& h) {
    const std::uint32_t size = h.eventPageSize;
    const auto count = static_cast<std::uint32_t>(h.eventPageCount);
    std::uint64_t offset = h.firstEventPage.offset();
    for (std::uint32_t i = 0; i < count; ++i) {
        const file_point point = file_point::at(offset);
        TMappedPage page;
        mapPage(point, size, page);
        lastPoint.exchange(point.position());
        pageIndex.insert(firstNumber(page), point);
        // In a damaged file another block may say that it stands here; its view must stay.
        if (isFirstAt(page))
            unmapBlock(page);
        offset += std::uint64_t{size} + FILE_BLOCK::kOverhead;
    }
}

void Storage::writeHeader() {
    CURDATA_HEADER& h = *header;
    std::memset(static_cast<void*>(&h), 0, offsetof(CURDATA_HEADER, eventPageCount));
    slotsPerPage = kDataPageSize / kSlotSize;
    std::memcpy(h.signature, CURDATA_HEADER::kSignature, sizeof h.signature);
    h.maxSecs = kLaidOutSecs;
    h.dataPageCount = static_cast<std::int32_t>((slotsPerPage + kLaidOutSecs) / slotsPerPage);
    h.dataPageSize = kDataPageSize;
    h.firstDataPage = file_point::at(kFirstDataPage);
    h.eventPageSize = kEventPageSize;
    h.firstEventPage = file_point::at(
        (std::uint64_t{kDataPageSize} + FILE_BLOCK::kOverhead) * h.dataPageCount + kFirstDataPage);
    h.currentEventPage = h.firstEventPage;
    // Until the page is there.
    h.eventPageCount = 0;
}

void Storage::raiseErrorText() const {
    const char* const text = lastErrorText();
    dwraise_ex(kCurDataSource, __LINE__, "%s",
               text != nullptr ? text : "Unknown error while reseting data.");
}
