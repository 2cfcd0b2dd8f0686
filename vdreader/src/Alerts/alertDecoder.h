// From the stored body of an alert to its fields.

#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <stdexcept>

#include "Alerts/sAlertDesc.h"

static_assert(std::endian::native == std::endian::little, "numbers are copied as they stand");

// Larger values of send_type than 6 all mean the same.
inline constexpr std::uint8_t kOtherSendType = 7;

// Memory that a part may keep for the next record.
inline constexpr std::size_t kMostKept = std::size_t{1} << 20;

// Makes room for a stored count of elements and reads them.  A count of more than 1 GiB raises
// std::length_error "vector too long"; below, memory is taken as the elements arrive, so that a
// damaged count costs no more than twice what the file gives.
template <class Stream, class Element>
[[gnu::noinline]] void decodePart(Stream& in, std::uint64_t count, AlertPart<Element>& part) {
    constexpr std::uint64_t kMostBytes = std::uint64_t{1} << 30;
    constexpr std::size_t kFirstPiece = std::size_t{64 * 1024} / sizeof(Element);
    if (count > kMostBytes / sizeof(Element))
        throw std::length_error("vector too long");
    if (part.capacity() > kMostKept / sizeof(Element))
        part.drop();
    part.resize(0);
    part.reserve(1); // also for none: the parts of the next record are then read in one copy
    while (part.size() < count) {
        const std::size_t have = part.size();
        const std::size_t piece = std::min<std::size_t>(count - have, std::max(have, kFirstPiece));
        part.resize(have + piece);
        in.read(part.data() + have, piece * sizeof(Element));
    }
}

// Reads fields and parts.  Nearly all lie in what the stream holds.
template <class Stream>
class AlertSource {
  public:
    explicit AlertSource(Stream& in) : m_in(in), m_ahead(in.ahead()) {}

    // Calls fields(source) for fields of `size` bytes together.
    template <class Fields>
    [[gnu::always_inline]] void run(std::size_t size, Fields fields) {
        if (size <= m_ahead.left())
            return m_ahead.run(size, fields);
        m_in.goOnAt(m_ahead);
        fields(m_in);
        m_ahead = m_in.ahead();
    }

    template <class Element>
    [[gnu::always_inline]] void part(std::uint64_t count, AlertPart<Element>& part) {
        constexpr std::size_t kLeast = AlertPart<Element>::kLeastBytes;
        if (count <= kLeast / sizeof(Element) && kLeast <= m_ahead.left() &&
            part.hasUpTo(kMostKept / sizeof(Element))) {
            part.resizeInPlace(count);
            return m_ahead.template readOf<kLeast>(part.data(), count * sizeof(Element));
        }
        m_in.goOnAt(m_ahead);
        decodePart(m_in, count, part);
        m_ahead = m_in.ahead();
    }

  private:
    Stream& m_in;
    typename Stream::Ahead m_ahead;
};

// Reads all fields, in stored order.  Nothing of what `alert` held before remains.
template <class Stream>
void decodeAlert(Stream& in, sAlertDesc& alert) {
    AlertSource source(in);
    std::uint64_t length = 0;
    source.run(71, [&](auto&& run) {
        run.get(alert.word0);
        run.get(alert.word1);
        run.get(alert.word2);
        run.get(alert.send_type);
        run.get(alert.firm_id);
        run.get(alert.type);
        run.get(alert.perms);
        run.get(alert.perms_ex);
        run.get(alert.perms_ex2);
        run.get(alert.flags);
        run.get(alert.client_code);
        run.get(length);
    });
    source.part(length, alert.data_id);
    source.run(10, [&](auto&& run) {
        run.get(alert.short0);
        run.get(length);
    });
    source.part(length, alert.body);
    source.run(40, [&](auto&& run) {
        run.get(alert.body_size);
        run.get(alert.word4);
        run.get(alert.word3);
        run.get(alert.word6);
        run.get(alert.word5);
        run.get(alert.quad0);
        run.get(length);
    });
    source.part(length, alert.class_codes);
    source.run(8, [&](auto&& run) { run.get(length); });
    source.part(length, alert.user_ids);
    source.run(8, [&](auto&& run) { run.get(alert.quad1); });
    alert.send_type = std::min(alert.send_type, kOtherSendType);
}
