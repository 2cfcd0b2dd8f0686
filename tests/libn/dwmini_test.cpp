#include "libn/dwmini.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "libn/memTraceTable.h"
#include "memutil.h"
#include "support/capturedLog.h"
#include "support/failingMalloc.h"
#include "support/raised.h"
#include "support/waitWhile.h"
#include "vdreader/errors.hpp"
#include "vdreader/memtrace.h"

namespace {

// What the tables are told while tracing is on.
struct Told {
    bool removed;
    void* block;
    std::size_t size;
    std::string file;
    int line;
};

std::vector<Told> told;

// Tracing switched on, with tables that only note what they are told.
class Tracing {
  public:
    Tracing() {
        told.clear();
        memTraceTable = {[](void* block, std::size_t size, const char* file, int line) {
                             EXPECT_FALSE(memTraceLock().try_lock());
                             told.push_back({false, block, size, file, line});
                         },
                         [](void* block) {
                             EXPECT_FALSE(memTraceLock().try_lock());
                             told.push_back({true, block, 0, "", 0});
                         }};
        memTraceEnabled = true;
    }
    ~Tracing() {
        memTraceEnabled = false;
        memTraceTable = m_saved;
    }
    Tracing(const Tracing&) = delete;
    Tracing& operator=(const Tracing&) = delete;

  private:
    MemTraceTable m_saved = memTraceTable;
};

struct Counts {
    std::uint32_t mallocs = memCountMalloc;
    std::uint32_t frees = memCountFree;
    std::uint32_t reallocs = memCountRealloc;
};

// What was counted since `before`: allocations, releases, reallocations.
std::vector<std::uint32_t> since(const Counts& before) {
    const Counts now;
    return {now.mallocs - before.mallocs, now.frees - before.frees, now.reallocs - before.reallocs};
}

using Numbers = std::vector<std::uint32_t>;

bool anotherThreadGetsTheLock() {
    bool got = false;
    std::thread([&got] {
        got = memTraceLock().try_lock();
        if (got)
            memTraceLock().unlock();
    }).join();
    return got;
}

// The calls of the heap that are about the sizes 4711 and 4712 or about `watchedBlock`, and whether
// another thread could take the lock at that moment.
void* watchedBlock = nullptr;
std::vector<std::string> heapCalls;

void noteHeap(WatchedHeap::Call call, void* block, std::size_t size) {
    const bool release = call == WatchedHeap::release;
    if (release ? block != watchedBlock : size != 4711 && size != 4712)
        return;
    heapCalls.push_back(std::string(release                             ? "free"
                                    : call == WatchedHeap::reallocation ? "realloc"
                                                                        : "malloc") +
                        (anotherThreadGetsTheLock() ? " open" : " locked"));
}

// Takes, moves and gives back one block.
std::vector<std::string> callsOfOneBlock() {
    heapCalls.clear();
    watchedBlock = &watchedBlock;
    const WatchedHeap heap(noteHeap);
    void* block = memTraceMalloc(4711, "f", 1);
    block = memTraceRealloc(block, 4712, "f", 2);
    watchedBlock = block;
    memTraceFree(block, "f", 3);
    return heapCalls;
}

using Calls = std::vector<std::string>;

} // namespace

TEST(MemTrace, CallsAreCountedWhileTracingIsOff) {
    ASSERT_FALSE(memTraceEnabled);
    const Counts before;
    void* block = memTraceMalloc(10, "f", 1);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(since(before), (Numbers{1, 0, 0}));
    block = memTraceRealloc(block, 20, "f", 2);
    EXPECT_EQ(since(before), (Numbers{1, 0, 1}));
    memTraceFree(block, "f", 3);
    EXPECT_EQ(since(before), (Numbers{1, 1, 1}));
    memTraceFree(nullptr, "f", 4);
    EXPECT_EQ(since(before), (Numbers{1, 2, 1}));
    void* fresh = memTraceRealloc(nullptr, 8, "f", 5);
    ASSERT_NE(fresh, nullptr);
    EXPECT_EQ(since(before), (Numbers{1, 2, 2}));
    std::free(fresh);
}

TEST(MemTrace, ReallocationKeepsTheContent) {
    char* block = static_cast<char*>(memTraceMalloc(4, "f", 1));
    std::memcpy(block, "abc", 4);
    block = static_cast<char*>(memTraceRealloc(block, 100'000, "f", 2));
    EXPECT_STREQ(block, "abc");
    memTraceFree(block, "f", 3);
}

TEST(MemTrace, PointersPassThroughWhileTracingIsOff) {
    const Counts before;
    int value = 0;
    EXPECT_EQ(memTraceAddPtr(&value, 4, "f", 1), &value);
    EXPECT_EQ(memTraceDelPtr(&value), &value);
    EXPECT_EQ(memTraceAddPtr(nullptr, 4, "f", 1), nullptr);
    EXPECT_EQ(since(before), (Numbers{0, 0, 0}));
}

// Whoever holds the lock finds the tables as they are, also at the moment of a switch.
TEST(MemTrace, PointersWaitForTheLockWhileTracingIsOffToo) {
    ASSERT_FALSE(memTraceEnabled);
    for (void* (*const call)() : {+[] { return memTraceAddPtr(&watchedBlock, 4, "f", 1); },
                                  +[] { return memTraceDelPtr(&watchedBlock); }}) {
        std::atomic<bool> calls{false}, returned{false};
        std::unique_lock guard(memTraceLock());
        std::thread other([&] {
            calls = true;
            EXPECT_EQ(call(), &watchedBlock);
            returned = true;
        });
        waitWhile(calls, false);
        for (int i = 0; i < 50 && !returned; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        EXPECT_FALSE(returned);
        guard.unlock();
        other.join();
        EXPECT_TRUE(returned);
    }
}

TEST(MemTrace, FailedAllocationIsPassedOn) {
    const FailingMalloc failing;
    EXPECT_EQ(memTraceMalloc(10, "f", 1), nullptr);
}

TEST(MemTrace, TracingEntersAndRemovesUnderItsLock) {
    const Tracing tracing;
    const Counts before;
    void* block = memTraceMalloc(10, "f", 1);
    memTraceFree(block, "g", 2);
    int value = 0;
    memTraceAddPtr(&value, 4, "h", 3);
    memTraceDelPtr(&value);
    ASSERT_EQ(told.size(), 4u);
    EXPECT_EQ(told[0].block, block);
    EXPECT_EQ(told[0].size, 10u);
    EXPECT_EQ(told[0].file, "f");
    EXPECT_EQ(told[0].line, 1);
    EXPECT_TRUE(told[1].removed);
    EXPECT_EQ(told[1].block, block);
    EXPECT_EQ(told[2].block, &value);
    EXPECT_EQ(told[2].size, 4u);
    EXPECT_TRUE(told[3].removed);
    EXPECT_EQ(since(before), (Numbers{1, 1, 0}));
    EXPECT_TRUE(memTraceLock().try_lock());
    memTraceLock().unlock();
}

TEST(MemTrace, TracingEntersAFailedAllocationUnderNull) {
    const Tracing tracing;
    {
        const FailingMalloc failing(77);
        EXPECT_EQ(memTraceMalloc(77, "f", 1), nullptr);
    }
    ASSERT_EQ(told.size(), 1u);
    EXPECT_EQ(told[0].block, nullptr);
    EXPECT_EQ(told[0].size, 77u);
}

TEST(MemTrace, TracingLeavesANullReleaseAtTheCount) {
    const Tracing tracing;
    const Counts before;
    memTraceFree(nullptr, "f", 1);
    EXPECT_TRUE(told.empty());
    EXPECT_EQ(since(before), (Numbers{0, 1, 0}));
}

TEST(MemTrace, TracedReallocationLeavesTheOldEntryBehind) {
    const Tracing tracing;
    void* block = memTraceMalloc(10, "f", 1);
    const Counts before;
    void* moved = memTraceRealloc(block, 1'000'000, "g", 2);
    ASSERT_EQ(told.size(), 2u);
    EXPECT_FALSE(told[1].removed);
    EXPECT_EQ(told[1].block, moved);
    EXPECT_EQ(told[1].size, 1'000'000u);
    EXPECT_EQ(told[1].file, "g");
    EXPECT_EQ(since(before), (Numbers{0, 0, 1}));
    memTraceFree(moved, "f", 3);
}

TEST(MemTrace, TracedReallocationOfNothingOrToNothingIsNotCounted) {
    const Tracing tracing;
    const Counts before;
    void* block = memTraceRealloc(nullptr, 10, "f", 1);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(since(before), (Numbers{1, 0, 0}));
    EXPECT_EQ(memTraceRealloc(block, 0, "f", 2), nullptr);
    EXPECT_EQ(since(before), (Numbers{1, 1, 0}));
    EXPECT_EQ(memTraceRealloc(nullptr, 0, "f", 3), nullptr);
    EXPECT_EQ(since(before), (Numbers{1, 1, 0}));
    ASSERT_EQ(told.size(), 2u);
    EXPECT_TRUE(told[1].removed);
}

TEST(MemTrace, HeapIsUsedInsideTheLockWhileTracingIsOnAlone) {
    EXPECT_EQ(callsOfOneBlock(), (Calls{"malloc open", "realloc open", "free open"}));
    const Tracing tracing;
    EXPECT_EQ(callsOfOneBlock(), (Calls{"malloc locked", "realloc locked", "free locked"}));
    EXPECT_EQ(told.size(), 3u);
}

TEST(MemTrace, FailedTracedReallocationIsEnteredUnderNullAndKeepsTheBlock) {
    const Tracing tracing;
    auto* block = static_cast<char*>(memTraceMalloc(10, "f", 1));
    std::memcpy(block, "still here", 10);
    {
        const FailingMalloc failing(77'000);
        EXPECT_EQ(memTraceRealloc(block, 77'000, "g", 2), nullptr);
    }
    ASSERT_EQ(told.size(), 2u);
    EXPECT_FALSE(told[1].removed);
    EXPECT_EQ(told[1].block, nullptr);
    EXPECT_EQ(told[1].size, 77'000u);
    EXPECT_EQ(told[1].file, "g");
    EXPECT_EQ(std::string(block, 10), "still here");
    memTraceFree(block, "f", 3);
    ASSERT_EQ(told.size(), 3u);
    EXPECT_TRUE(told[2].removed);
    EXPECT_EQ(told[2].block, block);
}

TEST(MemTrace, ReallocationToNothingIsTheHeapsOwnWhileTracingIsOff) {
    static void* block;
    static int reallocations, releases;
    reallocations = releases = 0;
    block = memTraceMalloc(10, "f", 1);
    const Counts before;
    void* left = nullptr;
    {
        const WatchedHeap heap([](WatchedHeap::Call call, void* of, std::size_t size) {
            if (of != block)
                return;
            reallocations += call == WatchedHeap::reallocation && size == 0;
            releases += call == WatchedHeap::release;
        });
        left = memTraceRealloc(block, 0, "f", 2);
    }
    EXPECT_EQ(reallocations, 1);
    EXPECT_EQ(releases, 0);
    EXPECT_EQ(since(before), (Numbers{0, 0, 1}));
    std::free(left);
}

TEST(MemTrace, SwitchThatTurnsDuringAReallocationCountsForTheNext) {
    const Tracing tracing;
    void* block = memTraceMalloc(10, "f", 1);
    {
        const WatchedHeap heap([](WatchedHeap::Call, void*, std::size_t size) {
            if (size == 4711 || size == 4712)
                memTraceEnabled = size == 4712;
        });
        block = memTraceRealloc(block, 4711, "f", 2); // on, and off behind its begin
        ASSERT_FALSE(memTraceEnabled);
        ASSERT_EQ(told.size(), 2u);
        EXPECT_EQ(told[1].block, block);
        block = memTraceRealloc(block, 4712, "f", 3); // off, and on behind its begin
        ASSERT_TRUE(memTraceEnabled);
        EXPECT_EQ(told.size(), 2u);
    }
    memTraceFree(block, "f", 4);
}

// A reallocation that took itself for untraced first and for traced later would enter a block of
// nothing that it has counted.
TEST(MemTrace, SwitchIsLookedAtOnceByAReallocation) {
    static int entered;
    const Tracing tracing;
    memTraceTable.enter = [](void*, std::size_t, const char*, int) { ++entered; };
    std::atomic<bool> stop{false};
    std::thread switching([&stop] {
        while (!stop)
            memTraceEnabled = !memTraceEnabled;
    });
    int both = 0, traced = 0, untraced = 0;
    for (int i = 0; i < 300'000 || traced == 0 || untraced == 0; ++i) {
        entered = 0;
        const std::uint32_t before = memCountRealloc;
        std::free(memTraceRealloc(nullptr, 8, "f", 1));
        const bool counted = memCountRealloc != before;
        both += counted && entered != 0;
        traced += entered;
        untraced += counted;
    }
    stop = true;
    switching.join();
    EXPECT_EQ(both, 0);
}

TEST(MemTrace, CountsOfThreadsAddUp) {
    const Counts before;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([] {
            for (int k = 0; k < 1000; ++k)
                memTraceFree(memTraceMalloc(16, "f", 1), "f", 2);
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(since(before), (Numbers{8000, 8000, 0}));
}

TEST(Dwmini, BlockIsZeroedOnRequest) {
    for (std::size_t size : {std::size_t{1}, std::size_t{4096}, std::size_t{3'000'001}}) {
        // A used block of this size goes back to the heap first.
        void* used = std::memset(dwminiAlloc(size, "f", 1, false), 0xAA, size);
        dwminiFree(&used);
        void* block = dwminiAlloc(size, "f", 1, true);
        const auto* bytes = static_cast<const unsigned char*>(block);
        EXPECT_EQ(bytes[0], 0);
        EXPECT_EQ(std::memcmp(bytes, bytes + 1, size - 1), 0);
        dwminiFree(&block);
        EXPECT_EQ(block, nullptr);
    }
}

TEST(Dwmini, BlockAboveTheLimitIsToldToTheEventLog) {
    const CapturedLog log;
    void* small = dwminiAlloc(3'000'000, "a\\b:c.cpp", 7, false);
    EXPECT_EQ(log.size(), 0u);
    void* big = dwminiAlloc(3'000'001, "a\\b:c.cpp", 7, true);
    EXPECT_EQ(log.messages(CapturedLog::events),
              (std::vector<std::string>{"Allocating big chunk of memory(3000001) at b:c.cpp:7"}));
    EXPECT_EQ(log.size(), 1u);
    dwminiFree(&small);
    dwminiFree(&big);
}

TEST(Dwmini, BlockWhoseLineRaisesIsFreed) {
    const CapturedLog log; // puts the sinks back
    logSinks.events = [](const char*) { throw std::runtime_error("no room"); };
    const Tracing tracing;
    static int releases;
    releases = 0;
    {
        const WatchedHeap heap([](WatchedHeap::Call call, void* block, std::size_t) {
            releases += call == WatchedHeap::release && !told.empty() && block == told[0].block;
        });
        EXPECT_EQ(raisedText([] { dwminiAlloc(3'000'001, "f", 1, true); }), "no room");
    }
    ASSERT_GE(told.size(), 2u); // and the line buffer of the thread
    EXPECT_NE(told[0].block, nullptr);
    EXPECT_TRUE(told.back().removed);
    EXPECT_EQ(told.back().block, told[0].block);
    EXPECT_EQ(releases, 1);
}

TEST(Dwmini, FailureIsRaisedWhateverTheSize) {
    for (std::size_t size : {std::size_t{1}, std::size_t{3'000'001}}) {
        const CapturedLog log;
        const FailingMalloc failing(size);
        const auto error = raised<COSError>([size] { dwminiAlloc(size, "x\\y\\z.cpp", 12, true); });
        ASSERT_TRUE(error);
        const std::string text =
            "(libn/src/dwmini at 151): Can't allocate memory at z.cpp:12. Required size " +
            std::to_string(size) + ". OS error description is '";
        EXPECT_EQ(std::string(error->what()).substr(0, text.size()), text);
        EXPECT_STREQ(error->file, "libn/src/dwmini");
        EXPECT_EQ(error->line, 151);
        EXPECT_EQ(error->code, 0);
        EXPECT_EQ(log.size(), 0u);
    }
}

TEST(Dwmini, ReleaseOfNothingIsAllowedAndNotCounted) {
    const Counts before;
    dwminiFree(nullptr);
    void* none = nullptr;
    dwminiFree(&none);
    EXPECT_EQ(since(before), (Numbers{0, 0, 0}));
    void* block = dwminiAlloc(4, "f", 1, false);
    dwminiFree(&block);
    EXPECT_EQ(since(before), (Numbers{1, 1, 0}));
}

TEST(Dwmini, ReleaseIsSeenByTheTracer) {
    const Tracing tracing;
    void* block = dwminiAlloc(5, "f", 1, false);
    void* const place = block;
    dwminiFree(&block);
    ASSERT_EQ(told.size(), 2u);
    EXPECT_TRUE(told[1].removed);
    EXPECT_EQ(told[1].block, place);
}

namespace {

struct Traced : memutil::Redefine_NewDelete_<4711> {
    int value; // left alone by the constructor
    char rest[60];
    Traced() {} // NOLINT(modernize-use-equals-default): value-initialisation would clear it
};

} // namespace

TEST(Memutil, ObjectsComeZeroedAndCharged) {
    const Tracing tracing;
    void* used = std::memset(dwminiAlloc(sizeof(Traced), "f", 1, false), 0xAA, sizeof(Traced));
    dwminiFree(&used);
    told.clear();
    auto* one = new Traced;
    auto* many = new Traced[3];
    ASSERT_EQ(told.size(), 2u);
    EXPECT_EQ(told[0].file, "Common/include/memutil");
    EXPECT_EQ(told[0].line, 4711);
    EXPECT_EQ(told[0].size, sizeof(Traced));
    EXPECT_GE(told[1].size, 3 * sizeof(Traced));
    EXPECT_EQ(told[1].line, 4711);
    EXPECT_EQ(one->value, 0);
    EXPECT_EQ(many[2].value, 0);
    delete one;
    delete[] many;
    EXPECT_EQ(told.size(), 4u);
    const Traced* none = nullptr;
    delete none;
    EXPECT_EQ(told.size(), 4u);
}

TEST(Memutil, PlacementTakesAndFreesNothing) {
    const Counts before;
    alignas(Traced) char room[sizeof(Traced)];
    auto* placed = new (static_cast<void*>(room)) Traced;
    EXPECT_EQ(static_cast<void*>(placed), static_cast<void*>(room));
    Traced::operator delete(placed, static_cast<void*>(room));
    EXPECT_EQ(Traced::operator new[](8, static_cast<void*>(room)), static_cast<void*>(room));
    Traced::operator delete[](room, static_cast<void*>(room));
    EXPECT_EQ(since(before), (Numbers{0, 0, 0}));
}

TEST(Memutil, BaseHasNoDataAndIsAssigned) {
    using Base = memutil::Redefine_NewDelete_<13>;
    static_assert(std::is_empty_v<Base>);
    Base one;
    const Base two;
    EXPECT_EQ(&(one = two), &one);
    EXPECT_EQ(&(one = Base()), &one);
}

TEST(Memutil, FailureNamesTheLine) {
    const FailingMalloc failing(sizeof(Traced));
    EXPECT_NE(raisedText([] { delete new Traced; })
                  .find("Can't allocate memory at Common/include/memutil:4711. Required size " +
                        std::to_string(sizeof(Traced)) + "."),
              std::string::npos);
}
