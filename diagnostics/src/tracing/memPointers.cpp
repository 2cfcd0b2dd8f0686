// Blocks of the memory tracer by their addresses.
//
// With tracing on, each allocation of the process waits for these look-ups, and what they cost is
// the first touch of a bucket.  A record that stands in its bucket saves a second one.

#include <cstring>
#include <limits>
#include <new>

#include "diagnostics/memTables.h"
#include "platform/calls.h"
#include "platform/memory.h"

namespace {

constexpr std::uint64_t power31(int exponent) {
    std::uint64_t power = 1;
    while (exponent-- > 0)
        power *= 31;
    return power;
}

// One byte of the address, times 31 to the power of those behind it.
template <int byte>
std::uint64_t share(std::uint64_t address) {
    constexpr std::uint64_t kFactor = power31(7 - byte);
    return static_cast<std::uint64_t>(static_cast<std::int8_t>(address >> 8 * byte)) * kFactor;
}

} // namespace

// All zero is an empty vector without room.
struct MemPointers::Bucket {
    enum Form : std::uint8_t {
        fresh,   // no room
        single,  // one record, with room for one
        emptied, // no record, with room for one
        many,    // a block of records
    };

    // single: the record.  many: the block of records, and their number and room.
    union {
        const void* pointer;
        MemRecord* records;
    };
    union {
        std::uint64_t size;
        struct {
            std::uint32_t count;
            std::uint32_t room;
        };
    };
    std::int16_t site;
    Form form;

    std::uint64_t capacity() const { return form == many ? room : form == fresh ? 0 : 1; }

    MemRecord* find(const void* wanted) const {
        for (MemRecord* record = records; record < records + count; ++record)
            if (record->pointer == wanted)
                return record;
        return nullptr;
    }

    // Room for more: twice as much, as a vector's.
    void grow() {
        const std::uint32_t former = form == many ? room : 1;
        if (former > std::numeric_limits<std::uint32_t>::max() / 2)
            throw std::bad_alloc();
        auto* const larger =
            static_cast<MemRecord*>(::operator new (std::size_t{former} * 2 * sizeof(MemRecord)));
        const std::uint32_t used = form == many ? count : 1;
        if (form == many) {
            std::memcpy(larger, records, used * sizeof(MemRecord));
            ::operator delete(records);
        } else {
            larger[0] = {pointer, size, site};
        }
        records = larger;
        count = used;
        room = former * 2;
        form = many;
    }
};

// The hash takes one byte after another, times 31 in between.  As a sum of products it waits for
// none of them.
std::size_t MemPointers::bucketOf(const void* pointer) {
    const std::uint64_t p = reinterpret_cast<std::uintptr_t>(pointer);
    const std::uint64_t low = share<0>(p) + share<1>(p) + share<2>(p) + share<3>(p);
    const std::uint64_t high = share<4>(p) + share<5>(p) + share<6>(p) + share<7>(p);
    return (low + high) % kBuckets;
}

MemPointers::MemPointers() {
    static_assert(sizeof(Bucket) == 24);
    m_buckets = static_cast<Bucket*>(platform::calls.allocateLarge(kBuckets * sizeof(Bucket)));
    if (m_buckets == nullptr)
        throw std::bad_alloc();
    std::memset(static_cast<void*>(m_buckets), 0, kBuckets * sizeof(Bucket));
}

MemPointers::~MemPointers() {
    releaseVectors();
    platform::releaseLarge(m_buckets);
}

void MemPointers::enter(const void* pointer, std::size_t size, std::int16_t site) {
    Bucket& bucket = m_buckets[bucketOf(pointer)];
    if (bucket.form != Bucket::many) {
        if (bucket.form != Bucket::single || bucket.pointer == pointer) {
            bucket.pointer = pointer;
            bucket.size = size;
            bucket.site = site;
            bucket.form = Bucket::single;
            return;
        }
        bucket.grow();
    } else if (MemRecord* const known = bucket.find(pointer)) {
        known->size = size;
        known->site = site;
        return;
    } else if (bucket.count == bucket.room) {
        bucket.grow();
    }
    bucket.records[bucket.count++] = {pointer, size, site};
}

void MemPointers::remove(const void* pointer) {
    Bucket& bucket = m_buckets[bucketOf(pointer)];
    if (bucket.form == Bucket::many) {
        if (MemRecord* const known = bucket.find(pointer))
            *known = bucket.records[--bucket.count];
    } else if (bucket.form == Bucket::single && bucket.pointer == pointer) {
        bucket.form = Bucket::emptied;
    }
}

void MemPointers::addUp(std::vector<MemTotal>& totals) const {
    const auto add = [&totals](std::uint64_t size, std::int16_t site) {
        if (static_cast<std::size_t>(site) >= totals.size())
            return; // kNoNumber too
        MemTotal& total = totals[static_cast<std::size_t>(site)];
        total.total += size;
        total.site = site;
        ++total.count;
    };
    for (const Bucket* bucket = m_buckets; bucket < m_buckets + kBuckets; ++bucket) {
        if (bucket->form == Bucket::single)
            add(bucket->size, bucket->site);
        else if (bucket->form == Bucket::many)
            for (std::uint32_t i = 0; i < bucket->count; ++i)
                add(bucket->records[i].size, bucket->records[i].site);
    }
}

std::uint64_t MemPointers::space() const {
    std::uint64_t room = kBuckets;
    for (const Bucket* bucket = m_buckets; bucket < m_buckets + kBuckets; ++bucket)
        room += bucket->capacity();
    return room * sizeof(MemRecord);
}

void MemPointers::wipe() {
    releaseVectors();
    std::memset(static_cast<void*>(m_buckets), 0, kBuckets * sizeof(Bucket));
}

void MemPointers::releaseVectors() {
    for (Bucket* bucket = m_buckets; bucket < m_buckets + kBuckets; ++bucket)
        if (bucket->form == Bucket::many)
            ::operator delete(bucket->records);
}
