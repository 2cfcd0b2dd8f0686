// Each kind of fault as the translator sees it, on the first thread and on another.

#include <gtest/gtest.h>

#include <thread>

#include "platform/fault.h"
#include "support/faults.h"

namespace {

class FaultKinds : public testing::TestWithParam<faults::Kind> {
  protected:
    static faults::Caught causeAndCatch(const faults::Kind& kind) {
        const sExceptionTranslator former = platform::setTranslator(faults::noteAndThrow);
        int cleanups = 0;
        faults::Caught caught = {};
        try {
            const faults::Cleanup outer(cleanups);
            causeBehindACleanup(kind, cleanups);
            ADD_FAILURE() << "no fault";
        } catch (const faults::Caught& fault) {
            caught = fault;
        }
        EXPECT_EQ(cleanups, 2);
        EXPECT_EQ(platform::setTranslator(former), faults::noteAndThrow);
        return caught;
    }

    static void expectKind(const faults::Caught& caught, const faults::Kind& kind) {
        if (kind.code != 0)
            EXPECT_EQ(caught.record.code, kind.code);
        else // Linux tells a quotient that is too large from no division by zero
            EXPECT_TRUE(caught.record.code == 0xC0000094 || caught.record.code == 0xC0000095)
                << std::hex << caught.record.code;
        EXPECT_EQ(caught.given, caught.record.code);
        EXPECT_EQ(caught.record.flags & 1, 0u);
        EXPECT_TRUE(caught.hasContext);
        if (kind.cause == faults::callNull)
            EXPECT_EQ(caught.record.address, nullptr);
        else
            EXPECT_NE(caught.record.address, nullptr);
        if (kind.parameterCount > 15)
            return;
        ASSERT_EQ(caught.record.parameterCount, kind.parameterCount);
        for (std::uint32_t i = 0; i < kind.parameterCount; ++i) {
            if (kind.parameters[i] == faults::kAny)
                continue;
            EXPECT_EQ(caught.record.parameters[i], kind.parameters[i]) << i;
        }
    }

  private:
    [[gnu::noinline]] static void causeBehindACleanup(const faults::Kind& kind, int& cleanups) {
        const faults::Cleanup inner(cleanups);
        kind.cause();
    }
};

} // namespace

TEST_P(FaultKinds, IsCaughtOnTheFirstThread) {
    expectKind(causeAndCatch(GetParam()), GetParam());
}

TEST_P(FaultKinds, IsCaughtOnAnotherThread) {
    faults::Caught caught = {};
    std::thread([&caught] { caught = causeAndCatch(GetParam()); }).join();
    expectKind(caught, GetParam());
}

TEST_P(FaultKinds, IsCaughtTimeAndAgain) {
    for (int i = 0; i < 1000; ++i) {
        expectKind(causeAndCatch(GetParam()), GetParam());
        if (HasFailure())
            break;
    }
}

INSTANTIATE_TEST_SUITE_P(All, FaultKinds, testing::ValuesIn(faults::kKinds),
                         [](const auto& kind) { return kind.param.name; });
