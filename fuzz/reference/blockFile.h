// A file of blocks as bytes in memory, with what a reader has mapped of it: the part of the second
// reader of data.vd that knows heads, growth and views.

#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace reference {

// The machine that the file stands on.
struct BlockMachine {
    std::string path;
    std::uint64_t mostBytes = 0;
    std::uint64_t mostViews = 0;
    std::uint64_t granularity = 0;
    std::uint32_t diskFull = 0;    // the system's reason where the file would pass mostBytes
    std::uint32_t noMoreViews = 0; // and for a view above mostViews
};

inline std::string piece(const std::string& name, std::uint64_t value) {
    return name + "<" + std::to_string(static_cast<std::int64_t>(value)) + ">";
}

class BlockFile {
  public:
    static constexpr std::uint64_t kOverhead = 28;
    static constexpr std::uint64_t kFarthest = std::uint64_t{1} << 40;
    static constexpr std::uint64_t kNowhere = ~std::uint64_t{0};

    struct View {
        std::uint64_t block;
        std::uint64_t size; // bytes of the block that are mapped, its overhead included
    };

    // `file` changes with what is done here.
    BlockFile(std::string& file, const BlockMachine& machine) : bytes(file), m_machine(machine) {}

    template <class Number>
    Number at(std::uint64_t offset) const {
        Number number;
        std::memcpy(&number, bytes.data() + offset, sizeof number);
        return number;
    }
    template <class Number>
    void set(std::uint64_t offset, Number number) {
        std::memcpy(bytes.data() + offset, &number, sizeof number);
    }

    // Maps a block and writes its head.  Throws the text of a failure as std::string.
    void map(std::uint64_t point, std::uint32_t size) {
        const std::uint64_t need = std::uint64_t{size} + kOverhead;
        if (point > kFarthest || need > kFarthest - point)
            throw piece("FileWorkLibrary::TFileStorageAllocatorNew::mapBlock:point", point) +
                piece("size", size);
        growTo(point + need);
        if (views.size() >= m_machine.mostViews) {
            const std::uint64_t skew = point % m_machine.granularity;
            throw "MappableStorageFile mapPtr. Ensure offset is n multiple memory page "
                  "size.:name()<" +
                m_machine.path + ">" + piece("offset", point - skew) + piece("n", need + skew) +
                piece("GetLastError()", m_machine.noMoreViews);
        }
        views.push_back({point, need});
        m_heads.emplace_back(point, size);
        set<std::uint16_t>(point, 0xFFED);
        set<std::uint32_t>(point + 4, size);
        set<std::uint64_t>(point + 12, point);
    }

    // The view that a search by position finds first; null for none.
    const View* find(std::uint64_t point) const {
        for (const View& view : views)
            if (at<std::uint64_t>(view.block + 12) == point)
                return &view;
        return nullptr;
    }

    // Whether different heads were written over one another or over the first block.
    bool headsOverlap() const {
        std::vector<Head> heads = m_heads;
        std::sort(heads.begin(), heads.end());
        std::uint64_t end = 0;
        for (std::size_t i = 0; i < heads.size(); ++i) {
            if (heads[i].first < end && (i == 0 || heads[i] != heads[i - 1]))
                return true;
            end = heads[i].first + (heads[i].first == 0 ? 132 : 24);
        }
        return false;
    }

    std::string& bytes;
    std::vector<View> views;

  private:
    using Head = std::pair<std::uint64_t, std::uint32_t>; // point and size

    void growTo(std::uint64_t end) {
        const std::uint64_t size = bytes.size();
        if (end <= size)
            return;
        const std::uint64_t grown = std::max(size * 2, end);
        if (grown > m_machine.mostBytes)
            throw "MappableStorageFile createMapping:name().c_str()<" + m_machine.path + ">" +
                piece("end", end) + piece("GetLastError()", m_machine.diskFull);
        bytes.resize(grown);
    }

    BlockMachine m_machine;
    std::vector<Head> m_heads; // written so far
};

} // namespace reference
