// Slots of data.vd, written and read at the same time.

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "live/dataWriter.h"
#include "live/pattern.h"
#include "roles.h"
#include "vdreader/curdata.hpp"

namespace {

// What all reading threads have seen.
struct Seen {
    std::atomic<std::uint64_t> slots{0};
    std::atomic<std::uint64_t> tornSlots{0};
    std::atomic<std::uint64_t> values{0};
    std::atomic<std::uint64_t> tornValues{0};
    std::atomic<std::uint64_t> changes{0};

    // Readers that see hardly any change would prove nothing; one torn slot proves all.
    bool enough(bool expectTorn) const {
        return expectTorn ? tornSlots + tornValues != 0 : changes >= 100;
    }
};

// Places in the copy of a slot, which begins behind its first 8 bytes.
constexpr std::size_t kFilled = 8 - 8;
constexpr std::size_t kValues = 56 - 8;

// A thread checker sees that threads without a lock meet in a slot, which is what they are to do:
// while this object lives, the memory that its thread uses is none of the checker's business.
#ifdef __SANITIZE_THREAD__
extern "C" void AnnotateIgnoreReadsBegin(const char* file, int line);
extern "C" void AnnotateIgnoreReadsEnd(const char* file, int line);
extern "C" void AnnotateIgnoreWritesBegin(const char* file, int line);
extern "C" void AnnotateIgnoreWritesEnd(const char* file, int line);

class Unchecked {
  public:
    Unchecked() {
        AnnotateIgnoreReadsBegin(__FILE__, __LINE__);
        AnnotateIgnoreWritesBegin(__FILE__, __LINE__);
    }
    ~Unchecked() {
        AnnotateIgnoreWritesEnd(__FILE__, __LINE__);
        AnnotateIgnoreReadsEnd(__FILE__, __LINE__);
    }
    Unchecked(const Unchecked&) = delete;
    Unchecked& operator=(const Unchecked&) = delete;
};
#else
class Unchecked {};
#endif

// Other threads get a turn between the halves of the slot: on a few processors that are busy,
// hardly any write would be interrupted in its middle otherwise.
void writeInHalves(live::DataWriter& writer, unsigned index, std::uint32_t stamp) {
    const sample::Slot whole = live::patternSlot(1, stamp);
    sample::Slot half = writer.readLocked(index);
    std::copy_n(whole.values.begin(), whole.values.size() / 2, half.values.begin());
    writer.writeLocked(index, half);
    std::this_thread::yield();
    writer.writeLocked(index, whole);
}

// Until the test stops the role; `going` tells the other threads.
void waitForStop(Writing& writing, std::atomic<bool>& going) {
    while (writing.goesOn())
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    going = false;
}

void readThread(TCurrentData& data, int thread, const Reading& reading, bool expectTorn,
                Seen& seen) {
    std::uint32_t last[kHotSlots] = {};
    unsigned param = static_cast<unsigned>(thread);
    while (reading.goesOn(seen.enough(expectTorn))) {
        for (unsigned index = 0; index < kHotSlots; ++index) {
            char copy[1072];
            std::uint16_t filled = 0;
            data.GetData4Reading(static_cast<std::int32_t>(index), copy, 0);
            std::memcpy(&filled, copy + kFilled, sizeof filled);
            if (filled == 0)
                continue;
            const std::optional<std::uint32_t> before = live::stampOf(copy + kValues);
            ++seen.slots;
            if (!before) {
                ++seen.tornSlots;
                continue;
            }
            seen.changes += *before != last[index];
            last[index] = *before;

            param = (param + 7) % 128;
            const auto slot = static_cast<std::int32_t>(index);
            const std::int32_t asLong = data.GetLongParam(slot, param);
            const auto after = live::stampOfDouble(data.GetDoubleParam(slot, param), param);
            ++seen.values;
            // Stamps of a slot only rise, so the integer is of one between the two.
            bool known = false;
            for (std::uint32_t stamp = *before; after && !known && stamp <= *after; ++stamp)
                known = live::isLongOf(stamp, param, asLong);
            if (!known)
                ++seen.tornValues;
        }
    }
}

} // namespace

int writeSlots(const std::string& file, double seconds, bool locked) {
    live::DataWriter writer(file);
    Writing writing(file, seconds);
    std::atomic<bool> going{true};
    std::atomic<std::uint64_t> writes{0};
    std::atomic<std::uint32_t> stamps[kHotSlots] = {};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread)
        threads.emplace_back([&, thread] {
            const auto unchecked = locked ? nullptr : std::make_unique<Unchecked>();
            for (unsigned turn = static_cast<unsigned>(thread); going; ++turn) {
                const unsigned index = turn % kHotSlots;
                if (locked)
                    writer.lockSlot(index);
                // Under the lock, so stamps of a slot rise in the order of the writes.
                writeInHalves(writer, index, ++stamps[index]);
                if (locked)
                    writer.unlockSlot(index);
                ++writes;
            }
        });
    waitForStop(writing, going);
    for (std::thread& thread : threads)
        thread.join();
    std::printf("writes %llu\n", static_cast<unsigned long long>(writes.load()));
    return writing.result();
}

int readSlots(const std::string& file, double seconds, bool expectTorn) {
    TCurrentData data;
    data.Init(file.c_str(), false);
    data.LoadData();
    const Reading reading(seconds);
    Seen seen;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread)
        threads.emplace_back([&, thread] { readThread(data, thread, reading, expectTorn, seen); });
    for (std::thread& thread : threads)
        thread.join();
    const auto number = [](const std::atomic<std::uint64_t>& value) {
        return static_cast<unsigned long long>(value.load());
    };
    std::printf("slots %llu torn %llu values %llu torn %llu changes %llu\n", number(seen.slots),
                number(seen.tornSlots), number(seen.values), number(seen.tornValues),
                number(seen.changes));
    const bool torn = seen.tornSlots + seen.tornValues != 0;
    return seen.enough(expectTorn) && torn == expectTorn ? 0 : 1;
}

int holdSlot(const std::string& file, unsigned index) {
    live::DataWriter writer(file);
    writer.lockSlot(index);
    std::_Exit(0); // nothing is released
}
