// Stack reports as a host meets them: in its event log.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "vdreader/logfiles.h"
#include "vdreader/postmortem.h"

namespace host {

volatile int behind = 0; // work behind each call, so that its frame stays

__attribute__((noipa)) void askForAReport() {
    ServerStackWalk(nullptr);
    behind = 1;
}
__attribute__((noipa)) void askForTheCurrentStack() {
    DrawCurrentStack();
    behind = 2;
}

} // namespace host

namespace {

namespace fs = std::filesystem;

// What the event log holds after `body`.
template <class Body>
std::string eventsOf(Body body) {
    const fs::path folder = fs::absolute(testing::internal::GetArgvs().front()).parent_path() /
                            testing::UnitTest::GetInstance()->current_test_info()->name();
    fs::remove_all(folder);
    fs::create_directories(folder);
    const std::string events = (folder / "events.log").string();
    util_init(events.c_str(), (folder / "errors.log").string().c_str(), "HOST", nullptr);
    body();
    shutdown_logs();
    std::ifstream in(events, std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(in), {}};
    in.close();
    std::error_code ignored;
    fs::remove_all(folder, ignored);
    return text;
}

} // namespace

TEST(StackReportInterface, ReportNamesTheHostsFunctions) {
    const std::string text = eventsOf(host::askForAReport);
    EXPECT_NE(text.find("[ModuleList] ------------- Begin -------------"), std::string::npos);
    EXPECT_NE(text.find("vdreader_interface_tests"), std::string::npos);
    EXPECT_NE(text.find("[Func=ServerStackWalk"), std::string::npos) << text;
    EXPECT_NE(text.find("[Func=host::askForAReport"), std::string::npos) << text;
    EXPECT_NE(text.find("[CallStack] ------------- End ---------------"), std::string::npos);
}

TEST(StackReportInterface, CurrentStackIsReportedToTheLog) {
    const std::string text = eventsOf(host::askForTheCurrentStack);
    EXPECT_NE(text.find("[CallStack]            Address:              Frame:"), std::string::npos);
    EXPECT_NE(text.find("[CallStack] 0x"), std::string::npos) << text;
    EXPECT_NE(text.find("[CallStack] ------------- End ---------------"), std::string::npos);
}
