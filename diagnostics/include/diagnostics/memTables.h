// The tables of the memory tracer: source positions, and the blocks that were entered for them.
//
// Threads: none of this is guarded; whoever uses it holds memTraceLock().

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

// A source position.  The text is not copied.
struct MemSite {
    const char* file;
    std::int32_t line;
};

// Numbers of source positions.  Two texts of equal content are one.
class MemSites {
  public:
    static constexpr std::size_t kBuckets = 211;
    // What does not fit a signed number of 16 bits; all positions from 32768 on have it, and the
    // reports leave them out.
    static constexpr std::int16_t kNoNumber = -1;

    // The number of a position, which is new where nobody asked for it before.
    std::int16_t numberOf(const char* file, std::int32_t line);

    // By number.
    const std::vector<MemSite>& all() const { return m_sites; }

    static std::size_t bucketOf(const char* file, std::int32_t line);

  private:
    struct Known {
        const char* file;
        std::int32_t line;
        std::int16_t site;
    };
    // Asks between two equal ones are about this many positions at most, as a rule.
    static constexpr std::size_t kRemembered = 256;

    std::int16_t search(const char* file, std::int32_t line);

    std::vector<MemSite> m_sites;
    std::array<std::vector<Known>, kBuckets> m_index;
    std::array<Known, kRemembered> m_remembered{};
};

// What one position holds.
struct MemTotal {
    std::uint64_t total = 0; // bytes
    std::int16_t site = 0;
    std::uint32_t count = 0; // blocks
};

// A block that was entered.
struct MemRecord {
    const void* pointer;
    std::uint64_t size;
    std::int16_t site;
};
static_assert(sizeof(MemRecord) == 24);

// Blocks by their addresses.
//
// A bucket is a vector of records in all that can be seen of it, its capacities included; one
// that holds a single record, as nearly all do, keeps it in itself.
class MemPointers {
  public:
    static constexpr std::size_t kBuckets = 5'000'011;

    // std::bad_alloc.
    MemPointers();
    ~MemPointers();
    MemPointers(const MemPointers&) = delete;
    MemPointers& operator=(const MemPointers&) = delete;

    // Enters the block, or writes over what stands there for its address.
    void enter(const void* pointer, std::size_t size, std::int16_t site);
    void remove(const void* pointer);

    // Adds each block to the total of its site.
    void addUp(std::vector<MemTotal>& totals) const;

    // 24 bytes for each element that the table of buckets and the buckets have room for.
    std::uint64_t space() const;

    // Forgets all blocks and the room that the buckets had.
    void wipe();

    static std::size_t bucketOf(const void* pointer);

  private:
    struct Bucket;

    void releaseVectors();

    Bucket* m_buckets;
};
