// Encoding of data.vd.

#include "sample/dataFile.h"

#include <algorithm>
#include <stdexcept>

#include "sample/bytes.h"

namespace sample {

namespace {

using Part = std::function<void(std::uint64_t, std::string_view)>;

std::string encodeBlockHead(std::uint32_t capacity, std::uint32_t used, std::uint64_t point,
                            std::uint32_t elements) {
    std::string out;
    appendNumber(out, kBlockMarker);
    appendFill(out, 2, 2);
    appendNumber(out, capacity);
    appendNumber(out, used);
    appendNumber(out, point);
    appendNumber(out, elements);
    return out;
}

std::size_t storedSize(const Record& record) {
    return kRecordBaseSize + record.mask.size() + record.longs.size() * sizeof(std::int32_t) +
           record.doubles.size() * sizeof(double);
}

void layOutPages(const DataFile& file, DataFileLayout& made) {
    const DataHeader& header = file.header;
    for (std::uint32_t i = 0; i < header.countDataPages(); ++i)
        made.dataPages.push_back(header.dataPoint(i));
    const std::uint32_t count =
        std::max<std::uint32_t>(1, static_cast<std::uint32_t>(file.eventPages.size()));
    made.eventPages.resize(count);
    for (std::uint32_t i = 0; i < count; ++i)
        made.eventPages[i].point = header.eventPoint(i);
    made.endOfPages = header.eventPoint(count);
    const std::uint64_t needed =
        made.endOfPages + (file.zeroBlockBehind ? kBlockOverhead + header.eventPageSize : 0);
    made.fileSize = file.fileSize.value_or(needed);
}

// A data page's head, then the slots of the page that have values.
void handOutDataPages(const DataFile& file, const DataFileLayout& made, const Part& part) {
    const DataHeader& header = file.header;
    const std::uint32_t slotsPerPage = header.slotsPerPage();
    auto slot = file.slots.begin();
    for (std::uint32_t page = 0; page < made.dataPages.size(); ++page) {
        part(made.dataPages[page],
             encodeBlockHead(header.dataPageSize, 0, made.dataPages[page], 0));
        for (; slot != file.slots.end() && slot->first / slotsPerPage == page; ++slot)
            part(header.slotOffset(slot->first), encodeSlot(slot->second));
    }
    if (slot != file.slots.end())
        throw std::out_of_range("a slot lies behind the data pages");
}

void handOutEventPage(const EventPage& page, std::uint32_t pageSize, EventPageLayout& made,
                      const Part& part) {
    std::string payload;
    for (const Record& record : page.records) {
        made.records.push_back(made.point + kBlockHeadSize + payload.size());
        payload += encodeRecord(record);
    }
    if (payload.size() > pageSize)
        throw std::length_error("the records of an event page do not fit it");
    made.used = page.storedUsed.value_or(static_cast<std::uint32_t>(payload.size()));
    const auto elements = static_cast<std::uint32_t>(page.records.size());
    part(made.point,
         encodeBlockHead(pageSize, made.used, made.point, page.storedElements.value_or(elements)) +
             payload);
}

} // namespace

std::uint32_t DataHeader::slotsPerPage() const {
    const std::uint32_t count = dataPageSize / static_cast<std::uint32_t>(kSlotSize);
    if (count == 0)
        throw std::invalid_argument("no slot fits a data page");
    return count;
}

std::uint32_t DataHeader::countDataPages() const {
    return dataPageCount ? *dataPageCount : (slotsPerPage() + maxSecs) / slotsPerPage();
}

std::uint64_t DataHeader::firstEventPoint() const {
    return firstEventPage ? *firstEventPage : dataPoint(countDataPages());
}

std::uint64_t DataHeader::dataPoint(std::uint32_t page) const {
    return firstDataPage + page * std::uint64_t{dataPageSize + kBlockOverhead};
}

std::uint64_t DataHeader::eventPoint(std::uint32_t page) const {
    return firstEventPoint() + page * std::uint64_t{eventPageSize + kBlockOverhead};
}

std::uint64_t DataHeader::slotOffset(std::uint32_t index) const {
    return dataPoint(index / slotsPerPage()) + kBlockHeadSize +
           index % slotsPerPage() * std::uint64_t{kSlotSize};
}

void Slot::setDouble(std::size_t param, double value) {
    values.at(param) = std::bit_cast<std::uint64_t>(value);
    mask[param / 8] = static_cast<std::uint8_t>(mask[param / 8] | 1 << param % 8);
}

void Slot::setLong(std::size_t param, std::int32_t value) {
    values.at(param) = static_cast<std::uint32_t>(value);
    mask[param / 8] = static_cast<std::uint8_t>(mask[param / 8] | 1 << param % 8);
}

double Slot::doubleAt(std::size_t param) const {
    return std::bit_cast<double>(values.at(param));
}

std::int32_t Slot::longAt(std::size_t param) const {
    return static_cast<std::int32_t>(values.at(param));
}

std::string encodeRecord(const Record& record) {
    const auto count = [](std::size_t size) { return static_cast<std::uint8_t>(size); };
    std::string out;
    appendFill(out, 0, 4);
    appendNumber(out, record.dataField2);
    appendNumber(out, record.dataField1);
    appendNumber(out, record.dataField3);
    appendNumber(out, record.storedMaskSize.value_or(count(record.mask.size())));
    appendNumber(out, record.storedLongCount.value_or(count(record.longs.size())));
    appendNumber(out, record.storedDoubleCount.value_or(count(record.doubles.size())));
    appendFill(out, 19, 1);
    appendNumber(out, record.sec_id);
    appendNumber(out, record.class_id);
    appendFill(out, 28, 4);
    for (const std::uint8_t byte : record.mask)
        appendNumber(out, byte);
    for (const std::int32_t value : record.longs)
        appendNumber(out, value);
    for (const double value : record.doubles)
        appendNumber(out, value);
    return out;
}

std::string encodeSlot(const Slot& slot) {
    std::string out;
    appendNumber(out, slot.lock);
    appendFill(out, 4, 4);
    appendNumber(out, slot.filled);
    appendFill(out, 10, 18);
    appendNumber(out, slot.class_id);
    appendFill(out, 32, 4);
    for (const std::uint8_t byte : slot.mask)
        appendNumber(out, byte);
    appendFill(out, 52, 4);
    for (const std::uint64_t value : slot.values)
        appendNumber(out, value);
    return out;
}

std::string encodeDataHeader(const DataFile& file) {
    const DataHeader& header = file.header;
    const std::uint32_t pages =
        std::max<std::uint32_t>(1, static_cast<std::uint32_t>(file.eventPages.size()));
    std::string out;
    appendText(out, header.signature, kDataSignatureSize);
    out.append(8, '\0'); // the terminator and what belongs to nobody
    appendNumber(out, header.elements);
    appendNumber(out, header.maxSecs);
    appendNumber(out, header.countDataPages());
    appendNumber(out, header.dataPageSize);
    appendNumber(out, std::uint32_t{0});
    appendNumber(out, header.firstDataPage);
    appendNumber(out, header.eventPageSize);
    appendNumber(out, std::uint32_t{0});
    appendNumber(out, header.firstEventPoint());
    appendNumber(out, header.currentEventPage.value_or(header.eventPoint(pages - 1)));
    appendNumber(out, header.closeStamp);
    appendNumber(out, header.eventPageCount.value_or(pages));
    return out;
}

std::vector<EventPage> packRecords(const std::vector<Record>& records, std::uint32_t eventPageSize,
                                   bool keepTailFree) {
    const std::size_t free = keepTailFree ? kFreeTail : 0;
    const std::size_t room = eventPageSize > free ? eventPageSize - free : 0;
    std::vector<EventPage> pages;
    std::size_t used = room;
    for (const Record& record : records) {
        const std::size_t size = storedSize(record);
        if (size > room)
            throw std::length_error("a record fits no event page");
        if (used + size > room) {
            pages.emplace_back();
            used = 0;
        }
        pages.back().records.push_back(record);
        used += size;
    }
    return pages;
}

std::uint64_t encodeDataParts(const DataFile& file, const Part& part, DataFileLayout* layout) {
    DataFileLayout made;
    layOutPages(file, made);
    // What an own size of the file cuts off is left out.
    const Part inside = [&](std::uint64_t offset, std::string_view bytes) {
        if (offset < made.fileSize)
            part(offset, bytes.substr(0, made.fileSize - offset));
    };
    inside(0, encodeBlockHead(kDataHeaderSize, 0, 0, 0) + encodeDataHeader(file));
    handOutDataPages(file, made, inside);
    static const EventPage kEmpty;
    for (std::size_t i = 0; i < made.eventPages.size(); ++i)
        handOutEventPage(file.eventPages.empty() ? kEmpty : file.eventPages[i],
                         file.header.eventPageSize, made.eventPages[i], inside);
    for (const auto& [offset, bytes] : file.damage) {
        if (bytes.size() > made.fileSize || offset > made.fileSize - bytes.size())
            throw std::out_of_range("damage lies behind the end of the file");
        part(offset, bytes);
    }
    const std::uint64_t size = made.fileSize;
    if (layout)
        *layout = std::move(made);
    return size;
}

std::string encodeDataFile(const DataFile& file, DataFileLayout* layout) {
    std::string out;
    const std::uint64_t size = encodeDataParts(
        file,
        [&](std::uint64_t offset, std::string_view bytes) {
            if (out.size() < offset + bytes.size())
                out.resize(offset + bytes.size());
            std::copy(bytes.begin(), bytes.end(),
                      out.begin() + static_cast<std::ptrdiff_t>(offset));
        },
        layout);
    out.resize(size);
    return out;
}

} // namespace sample
