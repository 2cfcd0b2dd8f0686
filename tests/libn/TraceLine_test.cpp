#include "libn/TraceLine.h"

#include <gtest/gtest.h>

#include <locale>
#include <string>
#include <thread>
#include <vector>

#include "dw_util/logLine.h"
#include "support/capturedLog.h"
#include "support/countedNew.h"
#include "support/failingMalloc.h"
#include "vdreader/log.h"

namespace {

struct Counted {
    int* insertions;
};

std::ostream& operator<<(std::ostream& out, const Counted& value) {
    ++*value.insertions;
    return out << "c";
}

} // namespace

TEST(TraceLine, PlaceAndFieldsMakeOneLine) {
    const CapturedLog log;
    {
        libn::TraceLine line("some::place", 0);
        line << "name<" << 5 << '>' << "other<"
             << "x%s" << '>';
        EXPECT_EQ(log.size(), 0u);
    }
    EXPECT_EQ(log.messages(CapturedLog::events),
              (std::vector<std::string>{"some::place:name<5>other<x%s>"}));
    EXPECT_EQ(log.lines(CapturedLog::events).at(0).substr(0, 3), "0: ");
}

TEST(TraceLine, LineAboveTheDebugLevelSkipsItsInsertions) {
    const CapturedLog log;
    SetDebugLevel(2);
    int insertions = 0;
    const std::size_t news = countedNews();
    libn::TraceLine("p", 3) << Counted{&insertions};
    EXPECT_EQ(countedNews(), news);
    EXPECT_EQ(insertions, 0);
    EXPECT_EQ(log.size(), 0u);
    libn::TraceLine("p", 2) << Counted{&insertions};
    EXPECT_EQ(insertions, 1);
    libn::TraceLine("p", -5) << Counted{&insertions};
    EXPECT_EQ(log.messages(CapturedLog::events), (std::vector<std::string>{"p:c", "p:c"}));
}

TEST(TraceLine, PointersHaveSixteenDigitsAndNumbersNoGroups) {
    struct Grouped : std::numpunct<char> {
        std::string do_grouping() const override { return "\3"; }
    };
    const std::locale former =
        std::locale::global(std::locale(std::locale::classic(), new Grouped));
    const CapturedLog log;
    libn::TraceLine("p", 0) << 1234567 << ' ' << reinterpret_cast<void*>(0xABCDEF) << ' ' << "t";
    std::locale::global(former);
    EXPECT_EQ(log.messages(CapturedLog::events),
              (std::vector<std::string>{"p:1234567 0000000000ABCDEF t"}));
}

TEST(TraceLine, LevelZeroIsAlwaysWritten) {
    const CapturedLog log;
    libn::TraceLine("p", 0) << 1;
    EXPECT_EQ(log.size(), 1u);
}

TEST(TraceLine, LineWithoutMemoryIsLostAndTheNextIsWritten) {
    std::thread([] { // has no line buffer yet
        const CapturedLog log;
        {
            const FailingMalloc failing(kLineBufferSize);
            libn::TraceLine("lost", 0) << 1;
        }
        libn::TraceLine("next", 0) << 2;
        EXPECT_EQ(log.messages(CapturedLog::events), (std::vector<std::string>{"next:2"}));
    })
        .join();
}
