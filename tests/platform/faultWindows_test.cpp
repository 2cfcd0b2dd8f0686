// What of faults only Windows has: structured handlers of others, exceptions that are raised by a
// call.

#ifdef _WIN32

#  include <gtest/gtest.h>

#  include <windows.h>

#  include <cstring>
#  include <string>

#  include "platform/fault.h"
#  include "support/faults.h"

namespace {

class FaultCodes : public testing::Test {
  protected:
    FaultCodes() { platform::setTranslator(faults::noteAndThrow); }
    ~FaultCodes() override { platform::setTranslator(nullptr); }
};

} // namespace

TEST_F(FaultCodes, FunctionsThatTestMemoryKeepTheirFaults) {
    EXPECT_TRUE(::IsBadReadPtr(reinterpret_cast<void*>(16), 8));
    EXPECT_TRUE(::IsBadStringPtrA(reinterpret_cast<char*>(16), 260));
    EXPECT_TRUE(::IsBadStringPtrW(reinterpret_cast<wchar_t*>(16), 260));
    EXPECT_FALSE(::IsBadStringPtrA("abc", 260));
    EXPECT_EQ(::lstrlenA(reinterpret_cast<char*>(1)), 0);
    EXPECT_THROW(faults::readNull(), faults::Caught);
}

TEST_F(FaultCodes, RaisedExceptionIsTranslatedWithItsParameters) {
    const ULONG_PTR given[] = {7, 8, 9};
    try {
        ::RaiseException(0xE0001234, 0, 3, given);
        FAIL();
    } catch (const faults::Caught& caught) {
        EXPECT_EQ(caught.given, 0xE0001234u);
        ASSERT_EQ(caught.record.parameterCount, 3u);
        EXPECT_EQ(caught.record.parameters[2], 9u);
    }
    EXPECT_THROW(::RaiseException(1723, 0, 0, nullptr), faults::Caught);
}

// For code of the other compiler on the same thread.
TEST_F(FaultCodes, RunTimeKnowsTheTranslator) {
    using Set = sExceptionTranslator (*)(sExceptionTranslator);
    const HMODULE runTime = ::GetModuleHandleA("msvcrt.dll");
    ASSERT_NE(runTime, nullptr);
    const auto set = reinterpret_cast<Set>(reinterpret_cast<void*>(::GetProcAddress(
        runTime, "?_set_se_translator@@YAP6AXIPEAU_EXCEPTION_POINTERS@@@ZP6AXI0@Z@Z")));
    ASSERT_NE(set, nullptr);
    EXPECT_EQ(set(nullptr), static_cast<sExceptionTranslator>(faults::noteAndThrow));
    set(faults::noteAndThrow);
    platform::setTranslator(nullptr);
    EXPECT_EQ(set(nullptr), nullptr);
}

TEST_F(FaultCodes, MessagesForDebuggersPass) {
    ::OutputDebugStringA("a line\n");
    EXPECT_THROW(faults::readNull(), faults::Caught);
}

TEST_F(FaultCodes, GuardedBlockDoesNotTakeExceptionsOfTheLanguage) {
    static int asked;
    asked = 0;
    EXPECT_TRUE(platform::runGuarded(
        [](void*) {
            try {
                throw 5;
            } catch (int) {
            }
        },
        [](sExceptionPointers*, void*) {
            ++asked;
            return platform::FilterAnswer::executeHandler;
        },
        nullptr));
    EXPECT_EQ(asked, 0);
}

#endif
