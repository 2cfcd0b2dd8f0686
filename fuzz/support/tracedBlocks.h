// Catches the blocks that the library takes from the traced allocator and does not give back.

#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

#include "libn/memTraceTable.h"
#include "vdreader/memtrace.h"

namespace fuzzing {

// One at a time; sees what is taken and given back while it lives.
class TracedBlocks {
  public:
    struct Block {
        void* start;
        std::size_t size;
    };

    TracedBlocks() {
        left().clear();
        memTraceTable = {enter, remove};
        memTraceEnabled = true;
    }
    // Frees what is left.
    ~TracedBlocks() {
        memTraceEnabled = false;
        for (const Block& block : left())
            memTraceFree(block.start, nullptr, 0);
    }
    TracedBlocks(const TracedBlocks&) = delete;
    TracedBlocks& operator=(const TracedBlocks&) = delete;

    // Views are told to the tracer too, but are no blocks: `file` names who told of them.
    using IsView = bool (*)(const char* file);
    static inline IsView isView = nullptr;

    // What was not given back, in the order in which it was taken.
    static std::vector<Block>& left() {
        static std::vector<Block> all;
        return all;
    }

  private:
    static void enter(void* start, std::size_t size, const char* file, int) {
        if (start != nullptr && !(isView != nullptr && isView(file)))
            left().push_back({start, size});
    }
    static void remove(void* start) {
        auto& all = left();
        for (std::size_t i = all.size(); i-- > 0;)
            if (all[i].start == start) {
                all.erase(all.begin() + static_cast<std::ptrdiff_t>(i));
                return;
            }
    }
};

} // namespace fuzzing
