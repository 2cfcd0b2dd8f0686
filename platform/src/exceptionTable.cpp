// Reading of exception tables.
//
//   landing pad base  encoding byte, value unless the encoding is 0xff
//   type table        encoding byte, ULEB128 offset unless the encoding is 0xff
//   call sites        encoding byte, ULEB128 size, then the rows: start, length, landing pad in the
//                     encoding, ULEB128 action (0: cleanup; else 1 + offset behind the rows)
//   actions           SLEB128 type filter (0: cleanup), SLEB128 distance to the next (0: last)

#include "exceptionTable.h"

#include <cstring>

namespace platform {

namespace {

constexpr unsigned char kOmitted = 0xff;

class TableReader {
  public:
    explicit TableReader(const void* at) : m_at(static_cast<const unsigned char*>(at)) {}

    const unsigned char* at() const { return m_at; }

    unsigned char byte() { return *m_at++; }

    std::uint64_t uleb() {
        int bits = 0;
        return leb(bits);
    }

    std::int64_t sleb() {
        int bits = 0;
        std::uint64_t value = leb(bits);
        if (bits < 64 && (m_at[-1] & 0x40) != 0)
            value |= ~std::uint64_t{0} << bits;
        return static_cast<std::int64_t>(value);
    }

    // A value in one of the forms that DWARF numbers; they are offsets here, without a base.
    std::uint64_t encoded(unsigned char encoding) {
        switch (encoding & 0x0f) {
            case 0x01:
                return uleb();
            case 0x02:
                return fixed<std::uint16_t>();
            case 0x03:
                return fixed<std::uint32_t>();
            case 0x0b:
                return static_cast<std::uint64_t>(fixed<std::int32_t>());
            default:
                return fixed<std::uint64_t>();
        }
    }

  private:
    std::uint64_t leb(int& bits) {
        std::uint64_t value = 0;
        unsigned char next = 0;
        do {
            next = byte();
            if (bits < 64)
                value |= static_cast<std::uint64_t>(next & 0x7f) << bits;
            bits += 7;
        } while ((next & 0x80) != 0);
        return value;
    }

    template <class Value>
    Value fixed() {
        Value value = {};
        std::memcpy(&value, m_at, sizeof value);
        m_at += sizeof value;
        return value;
    }

    const unsigned char* m_at;
};

// Whether one action of the chain is more than a cleanup.
TableAnswer ofActions(const unsigned char* action) {
    for (;;) {
        TableReader reader(action);
        if (reader.sleb() != 0)
            return TableAnswer::catches;
        const unsigned char* distanceAt = reader.at();
        const std::int64_t distance = reader.sleb();
        if (distance == 0)
            return TableAnswer::passes;
        action = distanceAt + distance;
    }
}

} // namespace

TableAnswer exceptionTableAnswer(const void* table, std::uint64_t offset) noexcept {
    if (table == nullptr)
        return TableAnswer::passes;
    TableReader reader(table);
    if (const unsigned char encoding = reader.byte(); encoding != kOmitted)
        reader.encoded(encoding);
    if (reader.byte() != kOmitted)
        reader.uleb();
    const unsigned char encoding = reader.byte();
    const std::uint64_t size = reader.uleb();
    const unsigned char* actions = reader.at() + size;
    if (size == 0) // all of a noexcept function: std::terminate is what its author asked for
        return TableAnswer::catches;
    while (reader.at() < actions) {
        const std::uint64_t start = reader.encoded(encoding);
        const std::uint64_t length = reader.encoded(encoding);
        const std::uint64_t landingPad = reader.encoded(encoding);
        const std::uint64_t action = reader.uleb();
        if (offset < start)
            break;
        if (offset < start + length)
            return landingPad == 0 || action == 0 ? TableAnswer::passes
                                                  : ofActions(actions + action - 1);
    }
    return TableAnswer::silent;
}

} // namespace platform
