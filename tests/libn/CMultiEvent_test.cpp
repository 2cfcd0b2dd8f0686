#include "libn/CMultiEvent.h"

#include <gtest/gtest.h>

#include <memory>
#include <thread>

#include "support/countedNew.h"
#include "vdreader/log.h"

using velt::CMultiEvent;

namespace {

// Else by the start of the thread itself.
#ifdef _WIN32
constexpr bool kMadeAtFirstUse = false;
#else
constexpr bool kMadeAtFirstUse = true;
#endif

std::shared_ptr<CMultiEvent::SWaiterData> waiterOfAnotherThread() {
    std::shared_ptr<CMultiEvent::SWaiterData> waiter;
    std::thread([&waiter] { waiter = CMultiEvent::waiterOfThread(); }).join();
    return waiter;
}

} // namespace

TEST(MultiEvent, EachThreadCarriesDataOfItsOwn) {
    const auto mine = CMultiEvent::waiterOfThread();
    ASSERT_NE(mine, nullptr);
    EXPECT_EQ(CMultiEvent::waiterOfThread(), mine);
    const auto another = waiterOfAnotherThread();
    ASSERT_NE(another, nullptr);
    EXPECT_NE(another, mine);
}

TEST(MultiEvent, DataOfAThreadGoesWithItUnlessItIsHeld) {
    std::weak_ptr<CMultiEvent::SWaiterData> waiter;
    std::thread([&waiter] { waiter = CMultiEvent::waiterOfThread(); }).join();
    EXPECT_TRUE(waiter.expired());
    const auto held = waiterOfAnotherThread();
    EXPECT_EQ(held.use_count(), 1);
}

TEST(MultiEvent, DataCanBeWaitedOn) {
    const auto waiter = waiterOfAnotherThread();
    bool told = false;
    std::thread teller([&] {
        const std::lock_guard guard(waiter->lock);
        told = true;
        waiter->condition.notify_one();
    });
    std::unique_lock lock(waiter->lock);
    waiter->condition.wait(lock, [&told] { return told; });
    lock.unlock();
    teller.join();
    EXPECT_TRUE(told);
}

TEST(MultiEvent, ThreadHasItFromItsFirstUseOfTheLibraryOn) {
    std::size_t first = 0;
    std::size_t later = 0;
    bool made = false;
    std::thread([&] {
        const std::size_t before = countedNews();
        unsetbanner_ptr();
        first = countedNews() - before;
        unsetbanner_ptr();
        made = CMultiEvent::waiterOfThread() != nullptr;
        later = countedNews() - before - first;
    }).join();
    EXPECT_EQ(first, kMadeAtFirstUse ? 1u : 0u);
    EXPECT_TRUE(made);
    EXPECT_EQ(later, 0u); // it was there already
}

TEST(MultiEvent, ThreadWithoutMemoryForItGoesOnWithout) {
    std::shared_ptr<CMultiEvent::SWaiterData> waiter;
    bool asked = false;
    // Threads start by calls of new themselves, so the failure begins on the thread.
    std::thread([&waiter, &asked] {
        {
            const FailingNew failing(0, 1);
            unsetbanner_ptr();
        }
        waiter = CMultiEvent::waiterOfThread();
        asked = true;
    }).join();
    EXPECT_TRUE(asked);
    EXPECT_EQ(waiter == nullptr, kMadeAtFirstUse); // else it was made before the failure began
}
