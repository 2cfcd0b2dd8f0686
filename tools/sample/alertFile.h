// Writer of alert.vd: a container of numbered records in 64-bit words.  Behind a header of 100
// words stand blocks: one table of 16,384 word indexes that leads to further such tables, these
// lead to record heads of 3 words, and a head leads to the record's body, a stream of bytes
// without a length in front.
//
// All numbers little-endian, bodies without padding between fields.  Words and bytes that readers
// leave alone hold the pattern of fillByte, counted from the start of their block.

#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace sample {

// ---- layout, for those who damage a file on purpose ----

inline constexpr std::size_t kAlertWordSize = 8; // word w stands at byte 8 * w
inline constexpr std::uint64_t kAlertMagic = 888888888;
inline constexpr std::uint64_t kAlertHeaderWords = 100;
inline constexpr std::uint64_t kAlertTableWords = 16384;
inline constexpr std::uint64_t kAlertHeadWords = 3;
inline constexpr std::uint64_t kAlertMaxRecords = kAlertTableWords * kAlertTableWords;

// Words of the header; those from 5 are zero.
namespace alertHeader {
inline constexpr std::uint64_t kMagic0 = 0;
inline constexpr std::uint64_t kMagic1 = 1;
inline constexpr std::uint64_t kNextFree = 2;
inline constexpr std::uint64_t kRoot = 3; // the first-level table, 0 while there is none
inline constexpr std::uint64_t kCount = 4;
} // namespace alertHeader

// Words of a record head.
namespace alertHead {
inline constexpr std::uint64_t kBody = 0;  // word index of the body
inline constexpr std::uint64_t kField = 2; // 32 bits in its low half; the body's word1 wins
} // namespace alertHead

// Byte offsets in a body, up to the first part of variable size.
namespace alertBody {
inline constexpr std::size_t kWord0 = 0;
inline constexpr std::size_t kWord1 = 4;
inline constexpr std::size_t kWord2 = 8;
inline constexpr std::size_t kSendType = 12;
inline constexpr std::size_t kFirmId = 13;
inline constexpr std::size_t kType = 26;
inline constexpr std::size_t kPerms = 30;
inline constexpr std::size_t kPermsEx = 34;
inline constexpr std::size_t kPermsEx2 = 38;
inline constexpr std::size_t kFlags = 42;
inline constexpr std::size_t kClientCode = 50;
inline constexpr std::size_t kDataId = 63; // the 8 bytes of its length
} // namespace alertBody

// Stored size of an alert whose four variable parts are empty.
inline constexpr std::size_t kAlertBaseSize = 137;
inline constexpr std::size_t kAlertCodeSize = 13;

// ---- what is written ----

// Fields in stored order.  The stored* values replace a length or count and change nothing else.
struct Alert {
    std::uint32_t word0 = 0;
    std::uint32_t word1 = 0;
    std::uint32_t word2 = 0;
    std::uint8_t send_type = 0;
    std::string firm_id = {}; // 13
    std::uint32_t type = 0;
    std::uint32_t perms = 0;
    std::uint32_t perms_ex = 0;
    std::uint32_t perms_ex2 = 0;
    std::uint64_t flags = 0;
    std::string client_code = {}; // 13
    std::string data_id = {};     // bytes, a length of 8 bytes in front
    std::uint16_t short0 = 0;
    std::string body = {}; // bytes, a length of 8 bytes in front
    // The size stored apart from the length above; that length where nothing is given.
    std::optional<std::uint64_t> body_size = {};
    std::uint32_t word4 = 0;
    std::uint32_t word3 = 0;
    std::uint32_t word6 = 0;
    std::uint32_t word5 = 0;
    std::uint64_t quad0 = 0;
    std::vector<std::string> class_codes = {}; // 13 each, a count of 8 bytes in front
    std::vector<std::uint32_t> user_ids = {};  // a count of 8 bytes in front
    std::uint64_t quad1 = 0;

    std::optional<std::uint64_t> storedDataIdLength = {};
    std::optional<std::uint64_t> storedBodyLength = {};
    std::optional<std::uint64_t> storedClassCodes = {};
    std::optional<std::uint64_t> storedUserIds = {};
};

// Where the four lengths and counts of a body stand: byte offsets from its start.
struct AlertBodyLayout {
    std::size_t dataId = 0;
    std::size_t body = 0;
    std::size_t bodySize = 0; // the size that is stored apart
    std::size_t classCodes = 0;
    std::size_t userIds = 0;
    std::size_t size = 0; // of the whole body
};

// ---- options of a file ----

struct AlertFileOptions {
    std::uint64_t magic0 = kAlertMagic;
    std::uint64_t magic1 = kAlertMagic;

    // The record number of each alert, rising; 0, 1, 2 ... where empty.  A number that is left out
    // is a gap: its slot stays 0.
    std::vector<std::uint64_t> numbers = {};

    // Words left between one block and the next, holding the pattern.
    std::uint64_t gapWords = 0;

    // The 32-bit field of each head; word1 of the body where nothing is given.
    std::optional<std::uint32_t> headField = {};

    // What the header's words hold in place of what belongs there.
    std::optional<std::uint64_t> storedNextFree = {};
    std::optional<std::uint64_t> storedRoot = {};
    std::optional<std::uint64_t> storedCount = {};

    // Words put over the finished file: index and value.  A word behind the end is refused with
    // std::out_of_range.
    std::vector<std::pair<std::uint64_t, std::uint64_t>> damage = {};

    // Size of the file in bytes, cut or filled up with zeros.  Where nothing is given, as a server
    // leaves it: a multiple of 65,536 with at least 480 bytes behind the last block, so that no
    // reader makes it grow.
    std::optional<std::uint64_t> fileSize = {};
};

// ---- where things landed: word indexes ----

struct AlertPlace {
    std::uint64_t number = 0;
    std::uint64_t slot = 0; // in the second-level table
    std::uint64_t head = 0;
    std::uint64_t body = 0;
    std::size_t bodySize = 0; // bytes
};

struct AlertFileLayout {
    std::uint64_t root = 0;                             // 0 in a file without records
    std::map<std::uint64_t, std::uint64_t> tables = {}; // by number / 16,384
    std::vector<AlertPlace> alerts = {};
    std::uint64_t nextFree = 0; // 0 in a file without records
    std::uint64_t count = 0;    // the highest number and 1
    std::size_t fileSize = 0;   // bytes
};

// ---- encoders ----

// The body of a record.
std::string encodeAlert(const Alert& alert, AlertBodyLayout* layout = nullptr);

// The whole file; blocks stand in the order in which a server appends the records, each new table
// before the head that needs it, each body behind its head.  `layout`, where given, is filled
// anew.  Raises std::invalid_argument for numbers that do not fit the alerts or do not rise, and
// std::length_error for a number that no table reaches.
std::string encodeAlertFile(const std::vector<Alert>& alerts, const AlertFileOptions& options = {},
                            AlertFileLayout* layout = nullptr);

} // namespace sample
