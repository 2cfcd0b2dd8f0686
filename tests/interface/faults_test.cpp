// Faults inside and around the library, as a host meets them.

#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>
#include <thread>
#include <vector>

#include "readers.h"
#include "support/faults.h"
#include "vdreader/dll.hpp"
#include "vdreader/errors.hpp"
#include "vdreader/postmortem.h"

namespace {

class HostFault : public testing::Test {
  protected:
    ~HostFault() override { util_set_se_translator(nullptr); }
};

// Faults in a callback of the library's walk, which has no frame that would keep the exception.
faults::Caught faultInACallback(void (*cause)()) {
    static void (*causes)();
    causes = cause;
    const SecurityCallback callback = [](sClassParUnitedDesc*, sSecurityDesc*) -> std::int32_t {
        causes();
        return 1;
    };
    try {
        for_each_security(callback);
    } catch (const faults::Caught& caught) {
        return caught;
    }
    return {};
}

} // namespace

TEST_F(HostFault, TranslatorIsTheThreadsOwn) {
    EXPECT_EQ(util_set_se_translator(faults::noteAndThrow), nullptr);
    std::thread([] { EXPECT_EQ(util_set_se_translator(nullptr), nullptr); }).join();
    EXPECT_EQ(util_set_se_translator(seh_translator), faults::noteAndThrow);
    EXPECT_EQ(util_set_se_translator(nullptr), seh_translator);
}

TEST_F(HostFault, HostCatchesWhatItsTranslatorThrows) {
    util_set_se_translator(faults::noteAndThrow);
    for (const faults::Kind& kind : faults::kKinds)
        try {
            kind.cause();
            ADD_FAILURE() << kind.name;
        } catch (const faults::Caught& caught) {
            if (kind.code != 0)
                EXPECT_EQ(caught.record.code, kind.code) << kind.name;
            EXPECT_EQ(caught.given, caught.record.code) << kind.name;
        }
}

TEST_F(HostFault, FaultOfACallbackPassesThroughTheLibrary) {
    const ReaderFolder folder;
    ASSERT_EQ(init_vdreader_classes_file(folder.writeClasses({classOf(1, "A", {"X"})}).c_str()), 1);
    for (const faults::Kind& kind : faults::kKinds) {
        util_set_se_translator(faults::noteAndThrow);
        const faults::Caught here = faultInACallback(kind.cause);
        EXPECT_NE(here.record.code, 0u) << kind.name;
        std::uint32_t there = 0;
        std::thread([&] {
            util_set_se_translator(faults::noteAndThrow);
            there = faultInACallback(kind.cause).record.code;
        }).join();
        EXPECT_EQ(there, here.record.code) << kind.name;
    }
    // The library goes on as before.
    seen = {};
    EXPECT_EQ(for_each_security(noteSecurity), 1);
    EXPECT_EQ(seen.securities, std::vector<std::string>{"A/X"});
}

TEST_F(HostFault, FramedWalkKeepsTheTextOfTheException) {
    const ReaderFolder folder;
    ASSERT_EQ(init_vdreader_classes_file(folder.writeClasses({classOf(1, "A")}).c_str()), 1);
    util_set_se_translator(
        [](unsigned int, sExceptionPointers*) { throw std::runtime_error("a fault"); });
    EXPECT_EQ(for_each_class([](sClassParUnitedDesc*) -> std::int32_t {
                  faults::writeNull();
                  return 1;
              }),
              0);
    EXPECT_EQ(lastError(), "a fault");
}

TEST_F(HostFault, FaultInsideTheLibraryBecomesItsError) {
    const ReaderFolder folder;
    util_set_se_translator(
        [](unsigned int, sExceptionPointers*) { throw std::runtime_error("a fault inside"); });
    ASSERT_EQ(init_vdreader_classes_file(folder.writeClasses({classOf(1, "A")}).c_str()), 1);
    EXPECT_EQ(for_each_class(nullptr), 0);
    EXPECT_EQ(lastError(), "a fault inside");
}

TEST_F(HostFault, TranslatorOfTheFamilyThrowsItsError) {
    const TempFolder folder;
    const std::filesystem::path former = std::filesystem::current_path();
    std::filesystem::current_path(folder.path());
    util_set_se_translator(seh_translator);
    // Without the service the first fault of the process leaves as a failed load.
    EXPECT_THROW(faults::writeNull(), libn::Dll::LoadError);
    try {
        faults::writeNull();
        FAIL();
    } catch (const CSEHError& error) {
        EXPECT_EQ(static_cast<std::uint32_t>(error.code), 0xC0000005u);
        EXPECT_EQ(std::string(error.what()).substr(0, 43),
                  "Exception 0xC0000005 occurred at address 0x");
    }
    EXPECT_THROW(faults::divideByZero(), CEmptyError);
    EXPECT_THROW(faults::divideByZero(), sarn::Exception);
    util_set_se_translator(nullptr);
    shutdown_logs();
    std::filesystem::current_path(former);
}

TEST(HostConvertError, GivesTheFamilysNumbers) {
    EXPECT_EQ(convert_error(0xC0000005), 60000u);
    EXPECT_EQ(convert_error(0xC0000094), 60012u);
    EXPECT_EQ(convert_error(0xC0000008), 60021u);
    EXPECT_EQ(convert_error(0x12345678), 0x5678u);
}
