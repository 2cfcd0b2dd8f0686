// Guarded blocks: what their filters see, and how they are left.

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "platform/fault.h"
#include "support/faults.h"

namespace {

using platform::FilterAnswer;
using platform::runGuarded;

struct Noted {
    std::vector<std::uint32_t> codes;
    FilterAnswer answer = FilterAnswer::executeHandler;
    int faultsInside = 0; // of the filter itself, before it answers
    const void* outerLocal = nullptr;
    bool below = false;
};

FilterAnswer note(sExceptionPointers* pointers, void* argument) {
    auto& noted = *static_cast<Noted*>(argument);
    noted.codes.push_back(pointers->record->code);
    if (noted.faultsInside-- > 0)
        faults::divideByZero();
    return noted.answer;
}

void faultsOnce(void*) {
    faults::writeNull();
}

using Codes = std::vector<std::uint32_t>;

} // namespace

TEST(GuardedBlock, RunsToItsEndWithoutAFault) {
    Noted noted;
    static int ran;
    ran = 0;
    EXPECT_TRUE(runGuarded([](void* argument) { ran += static_cast<Noted*>(argument) != nullptr; },
                           note, &noted));
    EXPECT_EQ(ran, 1);
    EXPECT_TRUE(noted.codes.empty());
}

TEST(GuardedBlock, IsLeftWhenTheFilterOrdersIt) {
    for (int i = 0; i < 1000; ++i) {
        Noted noted;
        ASSERT_FALSE(runGuarded(faultsOnce, note, &noted));
        ASSERT_EQ(noted.codes, Codes{0xC0000005});
    }
}

TEST(GuardedBlock, FilterSeesTheRecordOfTheFault) {
    static sExceptionRecord record;
    static bool hasContext;
    EXPECT_FALSE(runGuarded(
        faultsOnce,
        [](sExceptionPointers* pointers, void*) {
            record = *pointers->record;
            hasContext = pointers->context != nullptr;
            return FilterAnswer::executeHandler;
        },
        nullptr));
    EXPECT_EQ(record.parameterCount, 2u);
    EXPECT_EQ(record.parameters[0], 1u);
    EXPECT_EQ(record.parameters[1], 0u);
    EXPECT_TRUE(hasContext);
}

TEST(GuardedBlock, IsLeftWithoutCleanups) {
    static int cleanups;
    cleanups = 0;
    Noted noted;
    EXPECT_FALSE(runGuarded(
        [](void*) {
            const faults::Cleanup cleanup(cleanups);
            faults::writeNull();
        },
        note, &noted));
    EXPECT_EQ(cleanups, 0);
}

TEST(GuardedBlock, FaultInsideTheFilterIsShownToItOnceMore) {
    Noted noted;
    noted.faultsInside = 1;
    EXPECT_FALSE(runGuarded(faultsOnce, note, &noted));
    EXPECT_EQ(noted.codes, (Codes{0xC0000005, 0xC0000094}));
}

TEST(GuardedBlock, FilterThatKeepsFaultingEndsTheBlock) {
    Noted noted;
    noted.faultsInside = 5;
    EXPECT_FALSE(runGuarded(faultsOnce, note, &noted));
    EXPECT_EQ(noted.codes, (Codes{0xC0000005, 0xC0000094}));
    noted = {};
    EXPECT_FALSE(runGuarded(faultsOnce, note, &noted));
    EXPECT_EQ(noted.codes, Codes{0xC0000005});
}

TEST(GuardedBlock, InnerBlockComesFirst) {
    static Noted inner;
    Noted outer;
    inner = {};
    EXPECT_TRUE(runGuarded([](void*) { EXPECT_FALSE(runGuarded(faultsOnce, note, &inner)); }, note,
                           &outer));
    EXPECT_EQ(inner.codes.size(), 1u);
    EXPECT_TRUE(outer.codes.empty());
}

TEST(GuardedBlock, OuterBlockGetsWhatTheInnerDeclines) {
    static Noted inner;
    Noted outer;
    inner = {};
    inner.answer = FilterAnswer::continueSearch;
    EXPECT_FALSE(runGuarded([](void*) { runGuarded(faultsOnce, note, &inner); }, note, &outer));
    EXPECT_EQ(inner.codes, Codes{0xC0000005});
    EXPECT_EQ(outer.codes, Codes{0xC0000005});
    // Nothing of the inner block is left.
    EXPECT_FALSE(runGuarded(faultsOnce, note, &outer));
    EXPECT_EQ(inner.codes.size(), 1u);
    EXPECT_EQ(outer.codes.size(), 2u);
}

TEST(GuardedBlock, FaultBehindAnInnerBlockIsTheOutersOwn) {
    static Noted inner;
    Noted outer;
    inner = {};
    EXPECT_FALSE(runGuarded(
        [](void*) {
            EXPECT_FALSE(runGuarded(faultsOnce, note, &inner));
            faults::divideByZero();
        },
        note, &outer));
    EXPECT_EQ(inner.codes, Codes{0xC0000005});
    EXPECT_EQ(outer.codes, Codes{0xC0000094});
}

TEST(GuardedBlock, WorksOnAThreadOfItsOwn) {
    Noted noted;
    bool ended = true;
    std::thread([&] { ended = runGuarded(faultsOnce, note, &noted); }).join();
    EXPECT_FALSE(ended);
    EXPECT_EQ(noted.codes, Codes{0xC0000005});
}

TEST(GuardedBlock, IsNearerThanATranslatorThatWasThereBefore) {
    platform::setTranslator(faults::noteAndThrow);
    Noted noted;
    EXPECT_FALSE(runGuarded(
        [](void*) {
            try {
                faults::writeNull();
            } catch (const faults::Caught&) {
                ADD_FAILURE() << "the translator was asked";
            }
        },
        note, &noted));
    EXPECT_EQ(noted.codes, Codes{0xC0000005});
    // Behind the block the translator is back.
    EXPECT_THROW(faults::divideByZero(), faults::Caught);
    EXPECT_EQ(noted.codes.size(), 1u);
    EXPECT_EQ(platform::setTranslator(nullptr), faults::noteAndThrow);
}

TEST(GuardedBlock, TranslatorThatIsSetInsideComesFirst) {
    static int caught;
    caught = 0;
    Noted noted;
    EXPECT_TRUE(runGuarded(
        [](void*) {
            platform::setTranslator(faults::noteAndThrow);
            try {
                faults::writeNull();
            } catch (const faults::Caught&) {
                ++caught;
            }
            platform::setTranslator(nullptr);
        },
        note, &noted));
    EXPECT_EQ(caught, 1);
    EXPECT_TRUE(noted.codes.empty());
}

TEST(GuardedBlock, TranslatorThatIsSetInsideStaysAfterTheEnd) {
    EXPECT_TRUE(
        runGuarded([](void*) { platform::setTranslator(faults::noteAndThrow); }, note, nullptr));
    EXPECT_THROW(faults::readNull(), faults::Caught);
    EXPECT_EQ(platform::setTranslator(nullptr), faults::noteAndThrow);
}

TEST(GuardedBlock, TranslatorThatIsSetInAnInnerBlockIsAskedInTheOuter) {
    static int caught;
    caught = 0;
    Noted noted;
    EXPECT_TRUE(runGuarded(
        [](void*) {
            runGuarded([](void*) { platform::setTranslator(faults::noteAndThrow); }, note, nullptr);
            try {
                faults::writeNull();
            } catch (const faults::Caught&) {
                ++caught;
            }
        },
        note, &noted));
    EXPECT_EQ(caught, 1);
    EXPECT_TRUE(noted.codes.empty());
    platform::setTranslator(nullptr);
}

TEST(GuardedBlock, BlockThatIsLeftPutsTheTranslatorBack) {
    static const sExceptionTranslator other = [](unsigned int, sExceptionPointers*) { throw 1; };
    platform::setTranslator(faults::noteAndThrow);
    Noted noted;
    EXPECT_FALSE(runGuarded(
        [](void*) {
            platform::setTranslator(other);
            runGuarded(
                faultsOnce, [](sExceptionPointers*, void*) { return FilterAnswer::continueSearch; },
                nullptr);
        },
        note, &noted));
    EXPECT_EQ(noted.codes, Codes{0xC0000005});
    EXPECT_THROW(faults::readNull(), faults::Caught);
    platform::setTranslator(nullptr);
}

TEST(GuardedBlock, StackOverflowIsLeftAgainAndAgain) {
    for (int i = 0; i < 3; ++i) {
        Noted noted;
        noted.codes.reserve(4);
        EXPECT_FALSE(runGuarded([](void*) { faults::overflow(); }, note, &noted));
        EXPECT_EQ(noted.codes, Codes{0xC00000FD});
    }
}

TEST(GuardedBlockDeathTest, FaultThatAllFiltersDeclineTakesItsOrdinaryWay) {
    Noted noted;
    noted.answer = FilterAnswer::continueSearch;
    EXPECT_DEATH(runGuarded(faultsOnce, note, &noted), "");
}
