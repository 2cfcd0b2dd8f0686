// Writer of data.vd: a header block, data pages with one slot of latest values for each security,
// and event pages with a journal of change records.  Every block has a head of 24 bytes, its
// payload, and 4 bytes that nobody writes.
//
// All numbers little-endian, without padding.  Bytes of a slot or record that readers leave alone
// hold the pattern of fillByte, counted from its start.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace sample {

// ---- layout, for those who damage a file on purpose ----

// A block: offsets from its position, and what it takes in the file beside its payload.
namespace dataBlock {
inline constexpr std::size_t kMarker = 0; // 16 bits, kBlockMarker
inline constexpr std::size_t kCapacity = 4;
inline constexpr std::size_t kUsed = 8;
inline constexpr std::size_t kPoint = 12; // the block's own position, 64 bits, low half first
inline constexpr std::size_t kElements = 20;
inline constexpr std::size_t kPayload = 24;
} // namespace dataBlock
inline constexpr std::uint16_t kBlockMarker = 0xFFED;
inline constexpr std::size_t kBlockHeadSize = 24;
inline constexpr std::size_t kBlockOverhead = 28;

// The header block's payload: offsets in it.  In the file each stands 24 bytes further on.
namespace dataHeader {
inline constexpr std::size_t kSignature = 0;
inline constexpr std::size_t kElements = 44;
inline constexpr std::size_t kMaxSecs = 48;
inline constexpr std::size_t kDataPageCount = 52;
inline constexpr std::size_t kDataPageSize = 56;
inline constexpr std::size_t kFirstDataPage = 64;
inline constexpr std::size_t kEventPageSize = 72;
inline constexpr std::size_t kFirstEventPage = 80;
inline constexpr std::size_t kCurrentEventPage = 88;
inline constexpr std::size_t kCloseStamp = 96;
inline constexpr std::size_t kEventPageCount = 100;
} // namespace dataHeader
inline constexpr const char* kDataSignature = "0B6C6676-8C6E-4807-B8CA-60367206277A";
inline constexpr std::size_t kDataSignatureSize = 36; // and a zero behind it
inline constexpr std::size_t kDataHeaderSize = 104;
inline constexpr std::uint32_t kClosedStamp = 0xDDFDDFDD;

// VD_DATA_CUST: its size, and offsets in it.
inline constexpr std::size_t kSlotSize = 1080;
inline constexpr std::size_t kSlotParams = 128;
inline constexpr std::size_t kMaskSize = 16;
namespace dataSlot {
inline constexpr std::size_t kLock = 0;
inline constexpr std::size_t kFilled = 8;
inline constexpr std::size_t kClassId = 28;
inline constexpr std::size_t kMask = 36;
inline constexpr std::size_t kValues = 56;
} // namespace dataSlot

// ENC_DATA: the size of its fixed part, and offsets in it.  Behind it stand the mask, the 32-bit
// values and the doubles.
inline constexpr std::size_t kRecordBaseSize = 32;
namespace dataRecord {
inline constexpr std::size_t kField2 = 4;
inline constexpr std::size_t kField1 = 8;
inline constexpr std::size_t kField3 = 12;
inline constexpr std::size_t kMaskSize = 16;
inline constexpr std::size_t kLongCount = 17;
inline constexpr std::size_t kDoubleCount = 18;
inline constexpr std::size_t kSecId = 20;
inline constexpr std::size_t kClassId = 24;
} // namespace dataRecord

// The tail of an event page's payload that a server leaves free: a reader that copies the page from
// a mapping does not get it.
inline constexpr std::size_t kFreeTail = 24;

// ---- what is written ----

// The numbers of a file.  What is not given follows from the others, or from the pages.
struct DataHeader {
    std::string signature = kDataSignature; // 36
    std::int32_t elements = 0;
    std::uint32_t maxSecs = 50'000;
    std::uint32_t dataPageSize = 0x30000;
    std::uint64_t firstDataPage = 132;
    std::uint32_t eventPageSize = 0x14000;
    std::uint32_t closeStamp = 0;
    std::optional<std::uint32_t> dataPageCount = {};    // (slotsPerPage + maxSecs) / slotsPerPage
    std::optional<std::uint64_t> firstEventPage = {};   // behind the data pages
    std::optional<std::uint64_t> currentEventPage = {}; // the last of the file's event pages
    std::optional<std::uint32_t> eventPageCount = {};   // that of the file's event pages

    // `dataPageSize` / 1080; raises std::invalid_argument where no slot fits a page.
    std::uint32_t slotsPerPage() const;
    std::uint32_t countDataPages() const;                // dataPageCount or what it follows from
    std::uint64_t firstEventPoint() const;               // firstEventPage or what it follows from
    std::uint64_t dataPoint(std::uint32_t page) const;   // position of a data page's block
    std::uint64_t eventPoint(std::uint32_t page) const;  // position of an event page's block
    std::uint64_t slotOffset(std::uint32_t index) const; // place of a slot in the file
};

// The values of one security.
struct Slot {
    std::uint32_t lock = 0;
    std::uint16_t filled = 1;
    std::int32_t class_id = 0;
    std::array<std::uint8_t, kMaskSize> mask{};
    std::array<std::uint64_t, kSlotParams> values{}; // as stored

    // Each stores the value and sets the parameter's bit.  A 32-bit value goes to the low half.
    void setDouble(std::size_t param, double value);
    void setLong(std::size_t param, std::int32_t value);
    bool has(std::size_t param) const { return mask[param / 8] & 1 << param % 8; }
    double doubleAt(std::size_t param) const;
    std::int32_t longAt(std::size_t param) const;
};

// One change.  The stored* values replace a count and change nothing else.
struct Record {
    std::int32_t dataField2 = 0;
    std::int32_t dataField1 = 0; // the running number
    std::int32_t dataField3 = 0;
    std::uint32_t sec_id = 0;
    std::int32_t class_id = 0;
    std::vector<std::uint8_t> mask = {};
    std::vector<std::int32_t> longs = {};
    std::vector<double> doubles = {};

    std::optional<std::uint8_t> storedMaskSize = {};
    std::optional<std::uint8_t> storedLongCount = {};
    std::optional<std::uint8_t> storedDoubleCount = {};
};

// Records that follow one another in one block.
struct EventPage {
    std::vector<Record> records = {};
    std::optional<std::uint32_t> storedUsed = {};
    std::optional<std::uint32_t> storedElements = {};
};

struct DataFile {
    DataHeader header = {};
    std::map<std::uint32_t, Slot> slots = {}; // by security number; all others are zero
    std::vector<EventPage> eventPages = {};   // one empty page where there is none

    // Whether a zeroed block stands behind the last event page, where readers find their end.
    bool zeroBlockBehind = true;

    // Bytes put over the finished file: offset and what stands there.  They must lie inside it.
    std::vector<std::pair<std::uint64_t, std::string>> damage = {};

    // Size of the file, cut or filled up with zeros, in place of what the parts need.
    std::optional<std::uint64_t> fileSize = {};
};

// ---- where things landed: offsets from the start of the file ----

struct EventPageLayout {
    std::uint64_t point = 0; // of the block
    std::vector<std::uint64_t> records = {};
    std::uint32_t used = 0;
};

struct DataFileLayout {
    std::vector<std::uint64_t> dataPages = {}; // of the blocks
    std::vector<EventPageLayout> eventPages = {};
    std::uint64_t endOfPages = 0; // behind the last event page, where the zeroed block begins
    std::uint64_t fileSize = 0;
};

// ---- encoders ----

std::string encodeRecord(const Record& record);
std::string encodeSlot(const Slot& slot);           // 1,080 bytes
std::string encodeDataHeader(const DataFile& file); // the payload, 104 bytes

// The records in as many pages as they need, in their order.  Without `keepTailFree` they also use
// the 24 bytes that a server leaves free.  Raises std::length_error for a record that fits no page.
std::vector<EventPage> packRecords(const std::vector<Record>& records, std::uint32_t eventPageSize,
                                   bool keepTailFree = true);

// Hands out the parts of the file that are not zero, in rising order without overlap, damage last,
// and gives the file's size.  `layout`, where given, is filled anew.  Raises std::length_error for
// a page whose records do not fit its payload and std::out_of_range for a slot or damage outside.
std::uint64_t encodeDataParts(const DataFile& file,
                              const std::function<void(std::uint64_t, std::string_view)>& part,
                              DataFileLayout* layout = nullptr);

// The whole file in memory; with the usual sizes 54 MB.
std::string encodeDataFile(const DataFile& file, DataFileLayout* layout = nullptr);

// The same bytes written to `path`, replacing what stands there, with holes for what is zero where
// the file system has such.  Goes through a temporary name like writeFile and raises OutputError.
std::uint64_t writeDataFile(const std::filesystem::path& path, const DataFile& file,
                            DataFileLayout* layout = nullptr);

} // namespace sample
