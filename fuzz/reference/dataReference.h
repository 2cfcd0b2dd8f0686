// A second reader of data.vd: a TCurrentData and its iterator over a file in memory.
//
// Whatever the library does to the file is done here too, so that the bytes agree at any time.

#pragma once

#include <map>
#include <optional>

#include "blockFile.h"

namespace reference {

// What the header tells, all of it at once.
struct DataNumbers {
    std::int32_t dataPageCount;
    std::uint32_t dataPageSize;
    std::uint64_t firstDataPage;
    std::uint32_t eventPageSize;
    std::uint64_t firstEventPage;
    std::uint64_t currentEventPage;
    std::int32_t eventPageCount;
};

class DataModel {
  public:
    static constexpr std::uint64_t kHeader = 24; // the header's first byte
    static constexpr std::uint32_t kSlot = 1080;

    DataModel(std::string& bytes, const BlockMachine& machine)
        : file(bytes, machine), m_path(machine.path) {}

    // As LoadData; throws the text of a failure.
    void load() {
        if (file.bytes.empty()) {
            if (!layOut())
                throw "Can't load data from file '" + m_path + "'";
            return;
        }
        dropAll();
        index.clear();
        mapHeader();
        file.set<std::uint32_t>(kHeader + 96, 0);
        const DataNumbers told = numbers();
        static constexpr char kSignature[] = "0B6C6676-8C6E-4807-B8CA-60367206277A";
        if (std::memcmp(file.bytes.data() + kHeader, kSignature, sizeof kSignature) != 0)
            throw std::string("File type is incorrect");
        check(told);
        mapSlots(told);
        indexPages(told);
        file.map(told.currentEventPage, told.eventPageSize);
    }

    // As ResetData.
    void reset() {
        if (!layOut())
            throw "Can't reset data for file '" + m_path + "'";
    }

    void close() {
        if (loaded)
            file.set<std::uint32_t>(kHeader + 96, 0xDDFDDFDD);
        dropAll();
        index.clear();
    }

    std::int32_t headerNumber(std::uint64_t offset) const {
        return loaded ? file.at<std::int32_t>(kHeader + offset) : 0;
    }
    std::int32_t maxSecs() const { return headerNumber(48); }
    std::int32_t elements() const { return headerNumber(44); }
    std::uint32_t eventPageSize() const { return static_cast<std::uint32_t>(headerNumber(72)); }

    // Place of a slot in the file.
    std::optional<std::uint64_t> slot(std::int32_t number) const {
        const auto wanted = static_cast<std::uint32_t>(number);
        if (wanted >= m_slots)
            return {};
        return m_told.firstDataPage +
               (std::uint64_t{m_told.dataPageSize} + BlockFile::kOverhead) * (wanted / m_perPage) +
               24 + std::uint64_t{wanted % m_perPage} * kSlot;
    }

    // Whether a slot can be taken without waiting for another process.
    bool isFree(std::int32_t number) const {
        const auto place = slot(number);
        return !place || file.at<std::uint32_t>(*place) != 1;
    }

    std::optional<std::string> copySlot(std::int32_t number) {
        const auto place = slot(number);
        if (!place || static_cast<std::uint32_t>(number) >= 50'000)
            return {};
        file.set<std::uint32_t>(*place, 0);
        return file.bytes.substr(*place + 8, kSlot - 8);
    }

    std::uint64_t param(std::int32_t number, std::uint64_t which) {
        const auto place = slot(number);
        if (!place || which > 127)
            return 0;
        file.set<std::uint32_t>(*place, 0);
        return file.at<std::uint16_t>(*place + 8) != 0
                   ? file.at<std::uint64_t>(*place + 56 + 8 * which)
                   : 0;
    }

    BlockFile file;
    // Positions of the journal's pages by the number of the first record.
    std::map<std::uint32_t, std::uint64_t> index;
    bool loaded = false; // a header is mapped

  private:
    DataNumbers numbers() const {
        const auto word = [&](std::uint64_t at) { return file.at<std::uint32_t>(kHeader + at); };
        const auto quad = [&](std::uint64_t at) { return file.at<std::uint64_t>(kHeader + at); };
        return {
            static_cast<std::int32_t>(word(52)), word(56), quad(64), word(72), quad(80), quad(88),
            static_cast<std::int32_t>(word(100))};
    }

    void dropAll() {
        file.views.clear();
        loaded = false;
        m_slots = 0;
    }

    void mapHeader() {
        file.map(0, 104);
        loaded = true;
    }

    static bool fits(std::uint64_t first, std::uint64_t size, std::uint64_t count) {
        return first <= BlockFile::kFarthest &&
               count * (size + BlockFile::kOverhead) <= BlockFile::kFarthest - first;
    }

    static void check(const DataNumbers& told) {
        const std::string place = "TCurrentData load:";
        if (told.dataPageSize < kSlot)
            throw place + piece("dataPageSize", told.dataPageSize);
        if (told.dataPageCount < 0)
            throw place + piece("dataPageCount",
                                static_cast<std::uint64_t>(std::int64_t{told.dataPageCount}));
        if (told.eventPageCount < 0)
            throw place + piece("eventPageCount",
                                static_cast<std::uint64_t>(std::int64_t{told.eventPageCount}));
        if (!fits(told.firstDataPage, told.dataPageSize, told.dataPageCount))
            throw place + piece("firstDataPage", told.firstDataPage) +
                piece("dataPageSize", told.dataPageSize) +
                piece("dataPageCount", told.dataPageCount);
        if (!fits(told.firstEventPage, told.eventPageSize, told.eventPageCount))
            throw place + piece("firstEventPage", told.firstEventPage) +
                piece("eventPageSize", told.eventPageSize) +
                piece("eventPageCount", told.eventPageCount);
        if (!fits(told.currentEventPage, told.eventPageSize, 1))
            throw place + piece("currentEventPage", told.currentEventPage) +
                piece("eventPageSize", told.eventPageSize);
    }

    void mapSlots(const DataNumbers& told) {
        const std::uint64_t count = static_cast<std::uint32_t>(told.dataPageCount);
        m_told = told;
        m_perPage = told.dataPageSize / kSlot;
        for (std::uint64_t i = 0; i < count; ++i)
            file.map(told.firstDataPage + i * (told.dataPageSize + BlockFile::kOverhead),
                     told.dataPageSize);
        m_slots = std::min(count * m_perPage, std::uint64_t{1} << 31);
    }

    void indexPages(const DataNumbers& told) {
        for (std::int32_t i = 0; i < told.eventPageCount; ++i) {
            const std::uint64_t point =
                told.firstEventPage + std::uint64_t{static_cast<std::uint32_t>(i)} *
                                          (told.eventPageSize + BlockFile::kOverhead);
            file.map(point, told.eventPageSize);
            index[told.eventPageSize >= 12 ? file.at<std::uint32_t>(point + 24 + 8) : 0] = point;
            // Where heads were written over one another the search finds an older view, which must
            // not go: slots may stand in it.
            if (file.find(file.at<std::uint64_t>(point + 12)) == &file.views.back())
                file.views.pop_back();
        }
    }

    bool layOut() {
        dropAll();
        file.bytes.clear();
        try {
            mapHeader();
            static constexpr char kSignature[] = "0B6C6676-8C6E-4807-B8CA-60367206277A";
            std::memset(file.bytes.data() + kHeader, 0, 104);
            std::memcpy(file.bytes.data() + kHeader, kSignature, sizeof kSignature);
            file.set<std::uint32_t>(kHeader + 48, 50'000);
            file.set<std::uint32_t>(kHeader + 52, 275);
            file.set<std::uint32_t>(kHeader + 56, 196'608);
            file.set<std::uint64_t>(kHeader + 64, 132);
            file.set<std::uint32_t>(kHeader + 72, 81'920);
            file.set<std::uint64_t>(kHeader + 80, 54'075'032);
            file.set<std::uint64_t>(kHeader + 88, 54'075'032);
            mapSlots(numbers());
            index.clear();
            file.map(54'075'032, 81'920);
            index[0] = 54'075'032;
            file.set<std::uint32_t>(kHeader + 100, 1);
            return true;
        } catch (const std::string&) {
            return false;
        }
    }

    std::string m_path;
    DataNumbers m_told = {};
    std::uint32_t m_perPage = 1;
    std::uint64_t m_slots = 0;
};

// The walk over the change records.
class DataWalk {
  public:
    explicit DataWalk(DataModel& model) : m_model(model) {}

    // `point` is where the page of the number stands, nothing for an empty index.
    std::optional<std::string> begin(std::optional<std::uint64_t> point) {
        m_made = true;
        if (!m_model.loaded) {
            forget();
            return {};
        }
        m_offset = 0;
        if (!point)
            return {};
        setPosition(BlockFile::kNowhere);
        load(*point);
        return take();
    }

    std::optional<std::string> current() const {
        if (!m_made || m_offset >= m_limit || m_limit - m_offset < 32)
            return {};
        const auto byte = [&](std::uint64_t at) {
            return std::uint64_t{static_cast<std::uint8_t>(m_page[24 + m_offset + at])};
        };
        const std::uint64_t length = 32 + byte(16) + 4 * byte(17) + 8 * byte(18);
        if (length > m_limit - m_offset)
            return {};
        return m_page.substr(24 + m_offset, length);
    }

    std::optional<std::string> next() {
        if (!m_made)
            return {};
        for (;;) {
            if (auto record = take())
                return record;
            m_offset = 0;
            const std::uint64_t left = position();
            if (static_cast<std::int64_t>(left) < 0)
                return {};
            if (!m_model.loaded) {
                forget();
                return {};
            }
            setPosition(BlockFile::kNowhere);
            load(left + BlockFile::kOverhead + m_model.eventPageSize());
            if (number(8) == 0) {
                setPosition(BlockFile::kNowhere);
                return {};
            }
        }
    }

  private:
    void forget() {
        m_page.clear();
        m_limit = m_offset = 0;
        m_made = false;
    }

    std::uint32_t number(std::size_t at) const {
        std::uint32_t value = 0;
        if (!m_page.empty())
            std::memcpy(&value, m_page.data() + at, 4);
        return value;
    }
    std::uint64_t position() const {
        return m_page.empty() ? BlockFile::kNowhere : number(12) | std::uint64_t{number(16)} << 32;
    }
    void setPosition(std::uint64_t point) {
        if (!m_page.empty())
            std::memcpy(m_page.data() + 12, &point, 8);
    }

    std::optional<std::string> take() {
        auto record = current();
        if (record)
            m_offset += record->size();
        return record;
    }

    void load(std::uint64_t point) {
        const std::uint32_t size = m_model.eventPageSize();
        if (m_page.empty() || number(4) < size || m_page.size() < size + BlockFile::kOverhead) {
            m_page.assign(size + BlockFile::kOverhead, '\0');
            std::memcpy(m_page.data() + 4, &size, 4);
            setPosition(point);
        }
        fill(point, size);
        if (position() != BlockFile::kNowhere)
            setPosition(point);
        m_limit =
            std::min<std::uint64_t>({number(8), number(4), m_page.size() - BlockFile::kOverhead});
    }

    void fill(std::uint64_t point, std::uint32_t size) {
        const std::string& bytes = m_model.file.bytes;
        if (const BlockFile::View* view = m_model.file.find(point)) {
            if (m_model.file.at<std::uint32_t>(view->block + 4) != size || size > view->size)
                return;
            const std::uint16_t marker = 0xFFED;
            std::memcpy(m_page.data(), &marker, 2);
            std::memcpy(m_page.data() + 4, &size, 4);
            setPosition(point);
            // The first bytes of the block, the head among them, and always its `used`.
            std::memcpy(m_page.data(), bytes.data() + view->block, size);
            std::memcpy(m_page.data() + 8, bytes.data() + view->block + 8, 4);
        } else if (point < bytes.size()) {
            bytes.copy(m_page.data(), size + BlockFile::kOverhead, point);
        }
    }

    DataModel& m_model;
    bool m_made = false;
    std::string m_page; // a block with its head
    std::uint64_t m_offset = 0;
    std::uint64_t m_limit = 0;
};

} // namespace reference
