// A second reader of alert.vd: works on the file's bytes in memory and comes to what a walk must
// hand out, how it ends, and which bytes the file has afterwards.
//
// It leaves the page cache out: an access makes the file grow to the end of the 64 KiB in which it
// ends, and nothing else of the cache shows in a file.

#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace reference {

struct AlertRecord {
    std::uint32_t word0 = 0, word1 = 0, word2 = 0;
    std::uint8_t sendType = 0;
    std::string firmId;
    std::uint32_t type = 0, perms = 0, permsEx = 0, permsEx2 = 0;
    std::uint64_t flags = 0;
    std::string clientCode;
    std::string dataId;
    std::uint16_t short0 = 0;
    std::string body;
    std::uint64_t bodySize = 0;
    std::uint32_t word4 = 0, word3 = 0, word6 = 0, word5 = 0;
    std::uint64_t quad0 = 0;
    std::string classCodes; // 13 bytes each
    std::string userIds;    // 4 bytes each
    std::uint64_t quad1 = 0;

    std::size_t variableBytes() const {
        return dataId.size() + body.size() + classCodes.size() + userIds.size();
    }
};

// When a callback stops, and with what.
struct AlertStop {
    std::size_t afterRecords = 0;
    std::size_t afterBytes = 0; // of the variable parts
    std::int32_t result = 2;
};

struct AlertWalk {
    std::vector<AlertRecord> records;
    std::int32_t result = 1;
    std::string text; // of the failure, empty without one
};

class AlertReader {
  public:
    // `file` becomes what it is after the walk.  `diskFull` is the reason of the system where the
    // file would pass `mostBytes`.
    AlertReader(std::string& file, std::string path, std::size_t mostBytes, std::uint32_t diskFull)
        : m_file(file), m_path(std::move(path)), m_most(mostBytes), m_diskFull(diskFull) {}

    AlertWalk walk(const AlertStop& stop) {
        AlertWalk walk;
        try {
            walk.result = walkRecords(stop, walk.records);
        } catch (const std::string& text) {
            walk.result = 0;
            walk.text = text;
        }
        return walk;
    }

  private:
    static constexpr std::uint64_t kMagic = 888888888;
    static constexpr std::uint64_t kTable = 16384;

    static std::string field(const char* place, const char* name, std::uint64_t value) {
        return std::string(place) + ":" + name + "<" + std::to_string(value) + ">";
    }

    void growTo(std::uint64_t end) {
        const std::uint64_t size = m_file.size();
        if (end <= size)
            return;
        const std::uint64_t grown = std::max(size * 2, end);
        if (grown > m_most)
            throw "MappableStorageFile createMapping:name().c_str()<" + m_path + ">end<" +
                std::to_string(end) + ">GetLastError()<" + std::to_string(m_diskFull) + ">";
        m_file.resize(grown);
    }

    // What every access does before it touches bytes.
    void reach(std::uint64_t position, std::uint64_t size) {
        growTo((position + size + 65535) / 65536 * 65536);
    }

    std::uint64_t word(std::uint64_t index) {
        reach(8 * index, 8);
        std::uint64_t value;
        std::memcpy(&value, m_file.data() + 8 * index, 8);
        return value;
    }

    void setWord(std::uint64_t index, std::uint64_t value) {
        reach(8 * index, 8);
        std::memcpy(m_file.data() + 8 * index, &value, 8);
    }

    static std::uint64_t near(const char* name, std::uint64_t value) {
        if (value > std::uint64_t{1} << 40)
            throw field("libn::storage word beyond reach", name, value);
        return value;
    }

    std::uint64_t table(std::uint64_t index, const char* name) {
        std::uint64_t place = near(name, word(index));
        if (place != 0)
            return place;
        place = std::max<std::uint64_t>(near("nextFree", word(2)), 100);
        setWord(2, place + kTable);
        // What of it lies in the file is filled, also where the file cannot grow.
        const std::uint64_t begin = std::min<std::uint64_t>(8 * place, m_file.size());
        const std::uint64_t end = std::min<std::uint64_t>(8 * (place + kTable), m_file.size());
        std::fill(m_file.begin() + static_cast<std::ptrdiff_t>(begin),
                  m_file.begin() + static_cast<std::ptrdiff_t>(end), '\0');
        reach(8 * place, 8 * kTable);
        setWord(index, place);
        return place;
    }

    std::uint64_t head(std::uint64_t number) {
        if (!m_rootRead)
            m_root = table(3, "root");
        m_rootRead = true;
        if (number / kTable >= kTable)
            throw field("libn::storage::RecNo index overflow", "recNo", number);
        const std::uint64_t slot = table(m_root + number / kTable, "table") + number % kTable;
        const std::uint64_t place = word(slot);
        if (place == 0)
            throw field("libn::storage::Array::getPos", "recNo", number);
        return near("head", place);
    }

    void startStream(std::uint64_t index) {
        m_streamAt = 8 * index;
        m_bufferEnd = m_streamAt + 480;
        reach(m_streamAt, 480);
    }

    void take(char* to, std::size_t size) {
        while (size > 0) {
            if (m_streamAt == m_bufferEnd) {
                reach(m_streamAt, 480);
                m_bufferEnd += 480;
            }
            const std::size_t part = std::min<std::size_t>(size, m_bufferEnd - m_streamAt);
            std::memcpy(to, m_file.data() + m_streamAt, part);
            m_streamAt += part;
            to += part;
            size -= part;
        }
    }

    template <class Number>
    void take(Number& number) {
        take(reinterpret_cast<char*>(&number), sizeof number);
    }

    void takeText(std::string& text, std::size_t size) {
        text.resize(size);
        take(text.data(), size);
    }

    void takeVector(std::string& bytes, std::size_t element) {
        std::uint64_t count = 0;
        take(count);
        if (count > (std::uint64_t{1} << 30) / element)
            throw std::string("vector too long");
        // Piece by piece, as the file may well end before.
        std::uint64_t left = count * element;
        bytes.clear();
        while (left > 0) {
            const std::size_t part = std::min<std::uint64_t>(left, 4096);
            bytes.resize(bytes.size() + part);
            take(bytes.data() + bytes.size() - part, part);
            left -= part;
        }
    }

    AlertRecord record(std::uint64_t number) {
        AlertRecord made;
        const std::uint64_t at = head(number);
        reach(8 * (at + 2), 8);
        startStream(near("body", word(at)));
        take(made.word0);
        take(made.word1);
        take(made.word2);
        take(made.sendType);
        made.sendType = std::min<std::uint8_t>(made.sendType, 7);
        takeText(made.firmId, 13);
        take(made.type);
        take(made.perms);
        take(made.permsEx);
        take(made.permsEx2);
        take(made.flags);
        takeText(made.clientCode, 13);
        takeVector(made.dataId, 1);
        take(made.short0);
        takeVector(made.body, 1);
        take(made.bodySize);
        take(made.word4);
        take(made.word3);
        take(made.word6);
        take(made.word5);
        take(made.quad0);
        takeVector(made.classCodes, 13);
        takeVector(made.userIds, 4);
        take(made.quad1);
        return made;
    }

    std::int32_t walkRecords(const AlertStop& stop, std::vector<AlertRecord>& records) {
        if (m_file.empty())
            m_file.resize(1);
        if (word(0) != kMagic || word(1) != kMagic) {
            m_file.assign(1, '\0');
            setWord(0, kMagic);
            setWord(1, kMagic);
        }
        const std::uint64_t count = word(4);
        std::size_t bytes = 0;
        for (std::uint64_t number = 0; number < count; ++number) {
            records.push_back(record(number));
            bytes += records.back().variableBytes();
            if (records.size() >= stop.afterRecords || bytes >= stop.afterBytes)
                return stop.result == 1 || stop.result == 2 ? 1 : 0;
        }
        return 1;
    }

    std::string& m_file;
    std::string m_path;
    std::size_t m_most;
    std::uint32_t m_diskFull;
    std::uint64_t m_root = 0;
    bool m_rootRead = false;
    std::uint64_t m_streamAt = 0; // of the next byte
    std::uint64_t m_bufferEnd = 0;
};

} // namespace reference
