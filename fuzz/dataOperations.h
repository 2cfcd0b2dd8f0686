// Operations on a TCurrentData and an iterator over it, in an order that a seed chooses, each
// beside the same operation of the reference reader.

#pragma once

#include <cstring>
#include <exception>
#include <iterator>
#include <limits>
#include <optional>
#include <string>

#include "dwdata/dw_curdata.h"
#include "reference/dataReference.h"
#include "support/input.h"

namespace fuzzing {

// Blocks that were mapped over the header can make it tell anything; a page is copied whole.
inline constexpr std::uint32_t kMostPage = 16 << 20;

inline void expectText(const std::string& text, const std::string& wanted) {
    expectNoDifference(text == wanted ? "" : "text " + text + ", wanted " + wanted);
}

// `model` and `data` are at the same point; `path` is that of the file.
class DataOperations {
  public:
    DataOperations(TCurrentData& data, reference::DataModel& model, const std::string& path,
                   std::uint32_t seed)
        : m_data(data),
          m_model(model),
          m_path(path),
          m_dice(seed),
          m_iterator(new ICurData{&data}),
          m_walk(model) {}

    void run() {
        for (std::uint32_t left = m_dice.below(40); left > 0; --left)
            step();
    }

  private:
    void step() {
        switch (m_dice.below(16)) {
            case 0:
            case 1:
                return begin();
            case 2:
                return sameRecord(m_iterator.Current(), m_walk.current());
            case 3:
                return checkCopy(slotNumber());
            case 4:
                return checkParam(slotNumber());
            case 5:
                return checkSlot(slotNumber());
            case 6:
                return checkNumbers();
            case 7:
                if (m_dice.oneIn(3))
                    start();
                return;
            default:
                for (std::uint32_t i = m_dice.below(4); i < 4; ++i)
                    if (m_model.eventPageSize() <= kMostPage)
                        sameRecord(m_iterator.Next(), m_walk.next());
        }
    }

    static void sameRecord(const ENC_DATA* record, const std::optional<std::string>& wanted) {
        FUZZ_CHECK((record != nullptr) == wanted.has_value());
        FUZZ_CHECK(!wanted || std::memcmp(record, wanted->data(), wanted->size()) == 0);
    }

    std::uint32_t anyNumber() {
        if (m_dice.oneIn(2) && !m_model.index.empty()) {
            auto entry = m_model.index.begin();
            std::advance(entry, m_dice.below(static_cast<std::uint32_t>(m_model.index.size())));
            return entry->first + m_dice.below(3) - 1;
        }
        return m_dice.oneIn(2) ? m_dice.below(100) : m_dice.next();
    }

    std::int32_t slotNumber() {
        static constexpr std::int32_t kNumbers[] = {-1,
                                                    181,
                                                    182,
                                                    49'999,
                                                    50'000,
                                                    std::numeric_limits<std::int32_t>::max(),
                                                    std::numeric_limits<std::int32_t>::min()};
        if (m_dice.oneIn(4))
            return kNumbers[m_dice.below(std::size(kNumbers))];
        return static_cast<std::int32_t>(m_dice.below(8));
    }

    void begin() {
        if (m_model.eventPageSize() > kMostPage)
            return;
        const std::uint32_t number = anyNumber();
        sameRecord(m_iterator.Begin(number), m_walk.begin(place(number)));
    }

    // Of a number that no page begins with a neighbour answers, whichever the tree comes to.
    std::optional<std::uint64_t> place(std::uint32_t number) {
        auto* storage = TCurrentDataAccess::storage(m_data);
        if (storage == nullptr)
            return {};
        const auto& index = m_model.index;
        FUZZ_CHECK(storage->pageIndex.nodeCount() == index.size());
        if (index.empty())
            return {};
        bool found = false;
        const auto node = storage->pageIndex.findNearest(number, found).node;
        FUZZ_CHECK(node != nullptr && found == index.contains(number));
        auto above = index.lower_bound(number);
        if (above == index.end() || node->key != above->first)
            FUZZ_CHECK(above != index.begin() && node->key == (--above)->first);
        FUZZ_CHECK(node->value.offset() == above->second);
        return above->second;
    }

    void checkCopy(std::int32_t number) {
        if (!m_model.isFree(number))
            return;
        std::string out(1072, '\xCD');
        void* const got = m_data.GetData4Reading(number, out.data(), 0);
        const auto wanted = m_model.copySlot(number);
        FUZZ_CHECK(got == (wanted ? out.data() : nullptr));
        FUZZ_CHECK(out == wanted.value_or(std::string(1072, '\xCD')));
    }

    void checkParam(std::int32_t number) {
        if (!m_model.isFree(number))
            return;
        static constexpr std::uint64_t kEdges[] = {0, 127, 128, 255, 1ull << 32, ~0ull};
        const std::uint64_t which =
            m_dice.oneIn(2) ? kEdges[m_dice.below(std::size(kEdges))] : m_dice.below(128);
        const std::uint64_t wanted = m_model.param(number, which);
        if (m_dice.oneIn(2)) {
            const double value = m_data.GetDoubleParam(number, which);
            FUZZ_CHECK(std::memcmp(&value, &wanted, sizeof value) == 0);
        } else {
            FUZZ_CHECK(m_data.GetLongParam(number, which) == static_cast<std::int32_t>(wanted));
        }
    }

    void checkSlot(std::int32_t number) {
        const VD_DATA_CUST* slot = m_data.GetDataCust(number);
        const auto place = m_model.slot(number);
        FUZZ_CHECK((slot != nullptr) == place.has_value());
        FUZZ_CHECK(!place ||
                   std::memcmp(slot, m_model.file.bytes.data() + *place, sizeof *slot) == 0);
    }

    void checkNumbers() {
        FUZZ_CHECK(m_data.GetMaxSecs() == m_model.maxSecs());
        std::int32_t elements = 1;
        m_data.GetElements(&elements);
        FUZZ_CHECK(elements == m_model.elements());
    }

    // Loads anew, lets go of the file, or lays it out, which the limit of the file prevents.
    void start() {
        const bool isOpen = TCurrentDataAccess::storage(m_data) != nullptr;
        if (!isOpen || m_dice.oneIn(3)) {
            m_data.Close();
            m_model.close();
            checkNumbers();
            checkSlot(0);
            if (m_dice.oneIn(4))
                return;
            m_data.Init(m_path.c_str(), false);
        }
        if (m_dice.oneIn(8))
            same([&] { m_data.ResetData(); }, [&] { m_model.reset(); });
        else
            same([&] { m_data.LoadData(); }, [&] { m_model.load(); });
    }

    template <class Real, class Wanted>
    static void same(Real real, Wanted wanted) {
        std::string text;
        std::string wantedText;
        try {
            real();
        } catch (const std::exception& failure) {
            text = failure.what();
        }
        try {
            wanted();
        } catch (const std::string& failure) {
            wantedText = failure;
        }
        expectText(text, wantedText);
    }

    TCurrentData& m_data;
    reference::DataModel& m_model;
    const std::string& m_path;
    Dice m_dice;
    DwDataIFaces::ICurDataIterator m_iterator;
    reference::DataWalk m_walk;
};

} // namespace fuzzing
