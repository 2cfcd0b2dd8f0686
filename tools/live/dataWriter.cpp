// Slots and journal of a data.vd that is in use.

#include "live/dataWriter.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <thread>

#include "live/words.h"

namespace live {

namespace {

using sample::kBlockHeadSize;

constexpr std::uint64_t kHeaderEnd = kBlockHeadSize + sample::kDataHeaderSize;
constexpr std::uint64_t kMaxFile = 1ull << 40;

// Where the record at `offset` of a page with `used` bytes ends, 0 if it does not end inside.
std::uint32_t recordEnd(const unsigned char* payload, std::uint32_t offset, std::uint32_t used) {
    if (used - offset < sample::kRecordBaseSize)
        return 0;
    const unsigned char* record = payload + offset;
    const std::uint32_t size = static_cast<std::uint32_t>(sample::kRecordBaseSize) +
                               record[sample::dataRecord::kMaskSize] +
                               4u * record[sample::dataRecord::kLongCount] +
                               8u * record[sample::dataRecord::kDoubleCount];
    return size <= used - offset ? offset + size : 0;
}

} // namespace

class DataWriter::Hold {
  public:
    Hold(DataWriter& writer, std::uint32_t index) : m_writer(writer), m_index(index) {
        m_writer.lockSlot(m_index);
    }
    ~Hold() { m_writer.unlockSlot(m_index); }
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;

  private:
    DataWriter& m_writer;
    std::uint32_t m_index;
};

DataWriter::DataWriter(const std::string& path) : m_file(path) {
    m_slots = m_file.map(0, kHeaderEnd);
    readHeader();
    checkHeader();
    m_slots = m_file.map(0, m_header.firstEventPoint());
    m_slotCount = static_cast<std::uint32_t>(std::min<std::uint64_t>(
        m_header.maxSecs, std::uint64_t{m_header.countDataPages()} * m_header.slotsPerPage()));
    findLastPage();
    shared<std::uint32_t>(headerField(sample::dataHeader::kCloseStamp)).store(0);
}

DataWriter::~DataWriter() {
    shared<std::uint32_t>(headerField(sample::dataHeader::kCloseStamp)).store(sample::kClosedStamp);
}

void DataWriter::readHeader() {
    namespace at = sample::dataHeader;
    const auto number = [&](std::uint64_t offset) {
        return load<std::uint32_t>(headerField(offset));
    };
    const auto point = [&](std::uint64_t offset) {
        return load<std::uint64_t>(headerField(offset));
    };
    const char* signature = reinterpret_cast<const char*>(headerField(at::kSignature));
    m_header.signature.assign(signature, strnlen(signature, sample::kDataSignatureSize));
    m_header.maxSecs = number(at::kMaxSecs);
    m_header.dataPageCount = number(at::kDataPageCount);
    m_header.dataPageSize = number(at::kDataPageSize);
    m_header.firstDataPage = point(at::kFirstDataPage);
    m_header.eventPageSize = number(at::kEventPageSize);
    m_header.firstEventPage = point(at::kFirstEventPage);
    m_header.currentEventPage = point(at::kCurrentEventPage);
    m_header.eventPageCount = number(at::kEventPageCount);
}

void DataWriter::checkHeader() const {
    const auto need = [&](bool holds, const char* what) {
        if (!holds)
            throw Error(Error::Kind::Malformed, m_file.path() + ": " + what);
    };
    const auto inside = [](std::uint64_t point) { return point < kMaxFile && point % 4 == 0; };
    need(m_header.signature == sample::kDataSignature, "the file has another signature");
    need(m_header.dataPageSize >= sample::kSlotSize && m_header.dataPageSize % 4 == 0 &&
             m_header.eventPageSize >= sample::kRecordBaseSize + sample::kFreeTail &&
             m_header.eventPageSize % 4 == 0 && m_header.eventPageSize < kMaxFile / 4,
         "the sizes of the pages fit no slot or record");
    need(inside(m_header.firstDataPage) && inside(*m_header.firstEventPage) &&
             inside(*m_header.currentEventPage),
         "a page lies where no page can be");
    need(m_header.dataPoint(*m_header.dataPageCount) <= *m_header.firstEventPage,
         "the event pages begin inside the data pages");
    need(*m_header.currentEventPage >= *m_header.firstEventPage &&
             (*m_header.currentEventPage - *m_header.firstEventPage) % blockSize() == 0,
         "the current event page is none of the event pages");
}

unsigned char* DataWriter::headerField(std::uint64_t offset) const {
    return m_slots.at(kBlockHeadSize + offset);
}

// ---- slots ----

unsigned char* DataWriter::slotAt(std::uint32_t index) const {
    if (index >= m_slotCount)
        throw std::out_of_range("there is no slot " + std::to_string(index));
    return m_slots.at(m_header.slotOffset(index));
}

bool DataWriter::tryLockSlot(std::uint32_t index) {
    return shared<std::uint32_t>(slotAt(index) + sample::dataSlot::kLock).exchange(1) != 1;
}

void DataWriter::lockSlot(std::uint32_t index) {
    while (!tryLockSlot(index))
        std::this_thread::yield();
}

void DataWriter::unlockSlot(std::uint32_t index) {
    shared<std::uint32_t>(slotAt(index) + sample::dataSlot::kLock).exchange(0);
}

sample::Slot DataWriter::readLocked(std::uint32_t index) const {
    namespace at = sample::dataSlot;
    const unsigned char* stored = slotAt(index);
    sample::Slot slot;
    slot.filled = load<std::uint16_t>(stored + at::kFilled);
    slot.class_id = load<std::int32_t>(stored + at::kClassId);
    std::memcpy(slot.mask.data(), stored + at::kMask, sizeof slot.mask);
    std::memcpy(slot.values.data(), stored + at::kValues, sizeof slot.values);
    return slot;
}

// Values first, the mark that there are some last: who looks without the lock sees at worst values
// that the mask does not show yet.
void DataWriter::writeLocked(std::uint32_t index, const sample::Slot& slot) {
    namespace at = sample::dataSlot;
    unsigned char* stored = slotAt(index);
    std::memcpy(stored + at::kValues, slot.values.data(), sizeof slot.values);
    store(stored + at::kClassId, slot.class_id);
    std::memcpy(stored + at::kMask, slot.mask.data(), sizeof slot.mask);
    store(stored + at::kFilled, slot.filled);
}

sample::Slot DataWriter::readSlot(std::uint32_t index) {
    const Hold hold(*this, index);
    return readLocked(index);
}

void DataWriter::writeSlot(std::uint32_t index, const sample::Slot& slot) {
    const Hold hold(*this, index);
    writeLocked(index, slot);
}

// ---- journal ----

std::uint32_t DataWriter::roomOfPage() const {
    return m_header.eventPageSize - static_cast<std::uint32_t>(sample::kFreeTail);
}

// Maps the page at `point` with the block behind it, which is there and empty afterwards.
void DataWriter::mapPage(std::uint64_t point) {
    const std::uint64_t behind = point + blockSize();
    m_file.growTo(point, behind + blockSize());
    View view = m_file.map(point, 2 * blockSize());
    std::memset(view.at(behind), 0, blockSize());
    m_page = std::move(view);
    m_point = point;
}

// The number behind the highest of the page's records, 0 if there is none.
std::int32_t DataWriter::highestNumber(std::uint64_t point) const {
    const View view = m_file.map(point, blockSize());
    const unsigned char* payload = view.at(point + kBlockHeadSize);
    const std::uint32_t used = std::min(
        load<std::uint32_t>(view.at(point + sample::dataBlock::kUsed)), m_header.eventPageSize);
    std::int32_t highest = 0;
    for (std::uint32_t at = 0, end = 0; (end = recordEnd(payload, at, used)) != 0; at = end)
        highest = std::max(highest, load<std::int32_t>(payload + at + sample::dataRecord::kField1));
    return highest;
}

// The page that the header calls the current one, or a later one that an ended server had opened
// and not yet named.
void DataWriter::findLastPage() {
    std::uint64_t point = *m_header.currentEventPage;
    std::int32_t highest = 0;
    const auto hasRecords = [&](std::uint64_t page) {
        return page + blockSize() <= m_file.size() &&
               load<std::uint32_t>(
                   m_file.map(page, kBlockHeadSize).at(page + sample::dataBlock::kUsed)) != 0;
    };
    while (hasRecords(point + blockSize()))
        point += blockSize();
    if (hasRecords(point))
        highest = highestNumber(point);
    else if (point >= *m_header.firstEventPage + blockSize())
        highest = highestNumber(point - blockSize());
    if (highest == std::numeric_limits<std::int32_t>::max())
        throw Error(Error::Kind::Malformed, m_file.path() + ": the numbers of changes are used up");
    m_nextNumber = highest + 1;
    mapPage(point);
    if (point != *m_header.currentEventPage)
        namePage();
}

void DataWriter::openPage() {
    namespace at = sample::dataBlock;
    mapPage(m_point + blockSize());
    unsigned char* head = m_page.at(m_point);
    store(head + at::kCapacity, m_header.eventPageSize);
    store(head + at::kPoint, m_point);
    store(head + at::kMarker, sample::kBlockMarker);
    ++m_pagesOpened;
}

// Tells readers that load from now on of the page that is written to.
void DataWriter::namePage() {
    const auto count =
        static_cast<std::uint32_t>((m_point - *m_header.firstEventPage) / blockSize() + 1);
    shared<std::uint64_t>(headerField(sample::dataHeader::kCurrentEventPage))
        .store(m_point, std::memory_order_release);
    shared<std::uint32_t>(headerField(sample::dataHeader::kEventPageCount))
        .store(count, std::memory_order_release);
}

// Bytes first, then what makes them count.
void DataWriter::publish(const std::string& bytes) {
    unsigned char* head = m_page.at(m_point);
    const auto used = shared<std::uint32_t>(head + sample::dataBlock::kUsed);
    const std::uint32_t before = used.load(std::memory_order_relaxed);
    std::copy(bytes.begin(), bytes.end(), head + kBlockHeadSize + before);
    used.store(before + static_cast<std::uint32_t>(bytes.size()), std::memory_order_release);
    shared<std::uint32_t>(head + sample::dataBlock::kElements)
        .fetch_add(1, std::memory_order_release);
}

std::int32_t DataWriter::appendRecord(const sample::Record& record) {
    sample::Record numbered = record;
    numbered.dataField1 = m_nextNumber;
    const std::string bytes = sample::encodeRecord(numbered);
    if (bytes.size() > roomOfPage())
        throw std::length_error("a record fits no event page");
    const std::uint32_t used = load<std::uint32_t>(m_page.at(m_point + sample::dataBlock::kUsed));
    const bool opens = used != 0 && (m_pageIsClosed || used > roomOfPage() - bytes.size());
    if (opens)
        openPage();
    m_pageIsClosed = false;
    publish(bytes);
    if (opens)
        namePage();
    return m_nextNumber++;
}

void DataWriter::setElements(std::int32_t elements) {
    shared<std::int32_t>(headerField(sample::dataHeader::kElements)).store(elements);
}

void DataWriter::growBy(std::uint64_t bytes) {
    const std::uint64_t size = m_file.size();
    m_file.growTo(size, size + bytes);
}

} // namespace live
