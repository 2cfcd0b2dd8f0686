// The link from the logs of one kind to a stream.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <sstream>
#include <string>

#include "logs/Events.h"
#include "support/tempFolder.h"

namespace {

using Errors = Events<ErrorsTlsPtr>;

} // namespace

TEST(EventsLink, LinkIsNamedByTheAddressOfItsStream) {
    Errors logs;
    EXPECT_EQ(logs.defaultFile(), nullptr);
    std::ostringstream out;
    logs.linkStream(out);
    const auto link = logs.defaultFile();
    ASSERT_NE(link, nullptr);
    char address[32];
    std::snprintf(address, sizeof address, "%016llX",
                  static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(&out)));
    EXPECT_STREQ(link->fileName, address);
    EXPECT_TRUE(link->provider->isGood());
    EXPECT_TRUE(link->provider->write("ab", 2));
    EXPECT_EQ(out.str(), "ab");
}

TEST(EventsLink, SameStreamIsLinkedOnceAndAnotherReplacesIt) {
    Errors logs;
    std::ostringstream out;
    std::ostringstream other;
    logs.linkStream(out);
    const auto link = logs.defaultFile();
    logs.linkStream(out);
    EXPECT_EQ(logs.defaultFile(), link);
    logs.linkStream(other);
    EXPECT_NE(logs.defaultFile(), link);
    EXPECT_EQ(link.use_count(), 1);
}

TEST(EventsLink, LinkToABadStreamHasNoProvider) {
    Errors logs;
    std::ostringstream out;
    out.setstate(std::ios::eofbit);
    logs.linkStream(out);
    ASSERT_NE(logs.defaultFile(), nullptr);
    EXPECT_EQ(logs.defaultFile()->provider, nullptr);
}

TEST(EventsLink, LinkUsesNoSlot) {
    std::ostringstream streams[50];
    const TempFolder folder;
    Errors logs;
    for (std::ostringstream& stream : streams)
        logs.linkStream(stream);
    for (int i = 0; i < 40; ++i)
        logs.setThreadFile(folder.name("log" + std::to_string(i)).c_str(), nullptr);
    EXPECT_NE(threadLogState().errorsFile, nullptr);
    threadLogState().errorsFile.reset();
}
