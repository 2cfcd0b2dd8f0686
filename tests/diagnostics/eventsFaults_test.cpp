// Openings of logs for which there is no memory.

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <string>

#include "logs/Events.h"
#include "support/countedNew.h"
#include "support/tempFolder.h"

namespace {

using Errors = Events<ErrorsTlsPtr>;

// Opens the log with one allocation that fails; whether that was raised.
bool openingFails(Errors& logs, const std::string& path, const std::string& ini, int after) {
    const FailingNew failing(after, 1);
    try {
        logs.setThreadFile(path.c_str(), ini.c_str());
        return false;
    } catch (const std::bad_alloc&) {
        return true;
    }
}

} // namespace

TEST(EventsFaults, AllocationThatFailsIsRaisedAndTheThreadHasNoFile) {
    const TempFolder folder;
    const std::shared_ptr<EVENTS>& mine = threadLogState().errorsFile;
    const std::string path = folder.write("a.log", ""); // of today, so there is a line about it
    const std::string ini = folder.write("ini", "[logfile]\nrotate=a.log,3\n");
    int failures = 0;
    int raised = 0;
    for (bool fails = true; fails; ++failures) {
        ASSERT_LT(failures, 500);
        Errors logs;
        const bool raises = openingFails(logs, path, ini, failures);
        raised += raises ? 1 : 0;
        fails = mine == nullptr; // a file that finds no memory for its name does not open
        EXPECT_TRUE(fails || !raises) << failures;
        // A slot that was taken stays taken, with a log that is closed.
        logs.setThreadFile(path.c_str(), nullptr);
        ASSERT_NE(mine, nullptr) << failures;
        EXPECT_TRUE(mine->provider == nullptr || mine->provider->isGood()) << failures;
        threadLogState().errorsFile.reset();
    }
    EXPECT_GT(raised, 5);
}
