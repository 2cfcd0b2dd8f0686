// Sequential reader of class.vd, the file of instrument classes.  docs/formats/class.md tells the
// format.
//
// The file is read in one pass, record by record; the securities and parameters of a record stand
// in blocks that the record points to.  Nothing is kept here and nothing stays open afterwards.

#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <vector>

#include "dwdata/ByteStream.h"
#include "platform/memory.h"
#include "vdreader/descriptors.hpp"

#pragma pack(push, 1)
// A class record in its stored form.  Unnamed bytes belong to the writer and are carried
// along.
struct STORE_CLASS_DESC {
    static constexpr std::uint16_t kFree = 0;
    static constexpr std::uint16_t kUsed = 8261;
    static constexpr std::uint32_t kNoBlock = 0xFFFFFFFF;

    std::uint16_t magic;
    char reserved2[2];
    std::int32_t classId;
    char classCode[13];
    char reserved21[2307];
    char fh[257];
    char fl[257];
    char ch[257];
    char cl[257];
    char reserved3356[32];
    std::int32_t paramsCount;
    std::int32_t securitiesCount;
    char reserved3396[44];
    std::uint32_t securitiesOffset;
    std::uint32_t paramsOffset;
    char reserved3448[16];
};
#pragma pack(pop)

static_assert(sizeof(STORE_CLASS_DESC) == 3464);
static_assert(offsetof(STORE_CLASS_DESC, magic) == 0);
static_assert(offsetof(STORE_CLASS_DESC, classId) == 4);
static_assert(offsetof(STORE_CLASS_DESC, classCode) == 8);
static_assert(offsetof(STORE_CLASS_DESC, fh) == 2328);
static_assert(offsetof(STORE_CLASS_DESC, fl) == 2585);
static_assert(offsetof(STORE_CLASS_DESC, ch) == 2842);
static_assert(offsetof(STORE_CLASS_DESC, cl) == 3099);
static_assert(offsetof(STORE_CLASS_DESC, paramsCount) == 3388);
static_assert(offsetof(STORE_CLASS_DESC, securitiesCount) == 3392);
static_assert(offsetof(STORE_CLASS_DESC, securitiesOffset) == 3440);
static_assert(offsetof(STORE_CLASS_DESC, paramsOffset) == 3444);
static_assert(std::is_trivially_copyable_v<STORE_CLASS_DESC>);

using SecurityVector = std::vector<SECURITY_DESC, platform::LargeTableAllocator<SECURITY_DESC>>;
using ParamVector = std::vector<PARAMS_DESC>;

class ClassStorage {
  public:
    static constexpr std::uint32_t kVersion = 15;
    static constexpr std::size_t kHeadSize = 13;
    static constexpr std::size_t kInfoSize = 128;

    // No vector of a descriptor grows beyond this many bytes.
    static constexpr std::uint64_t kMostBytes = std::uint64_t{1} << 30;

    // Opens the file and stands on its first record.  A file that does not open leaves `opened`
    // false and "Failed to open " with the path on standard error.  Raises "vd-file '%s' has
    // invalid format" for a file shorter than the head, "vd-file '%s' has invalid head" for another
    // head,
    // "'%s' has invalid format" for a file without a version,
    // "'%s' has invalid format version %#x" for another version than 15,
    // "class.vd has invalid format" for a file that ends inside the info block.
    explicit ClassStorage(const char* path);

    // Reads the next record; true for a used one, false for a free slot and behind the last record.
    // Raises "STORE_CLASS_DESC has an invalid record format (index=%d)" where the file ends or an
    // earlier block ended too soon, "STORE_CLASS_DESC has an invalid record magic (index=%d)" for a
    // record that is neither used nor free.
    bool nextRecord(STORE_CLASS_DESC& record);

    // Read the record's block and leave the record array: seekRecord(nextIndex) goes back.  Without
    // a block the vector stays as it is.  A block that ends too soon fails no call: its last fields
    // keep their defaults, but the stream has failed, and whatever is read next raises.  Raise
    // "securitiesSize has invalid record format" and "paramsSize has invalid record format" where
    // the block does not begin inside the file or the other block ended too soon, std::length_error
    // "vector too long" for a negative count or one of more than 1 GiB.
    void readSecurities(const STORE_CLASS_DESC& record, SecurityVector& securities);
    void readParams(const STORE_CLASS_DESC& record, ParamVector& params);

    void seekRecord(std::uint32_t index);

    bool opened = false;
    std::uint32_t version = 0;
    std::uint32_t classCount = 0;
    std::uint32_t nextIndex = 0; // records read so far
    std::uint64_t recordsStart = 0;

  private:
    void readHead(const char* path);
    bool enterBlock(std::int32_t count, std::uint32_t offset, const char* failure);

    ByteStream m_stream;
};
