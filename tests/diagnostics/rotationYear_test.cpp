// A year of a log that is opened several times a day: each copy holds the lines of one day, and
// nothing is lost but what falls off the end.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <deque>
#include <random>
#include <string>
#include <vector>

#include "diagnostics/rotatingFolder.h"
#include "dw_util/threadLogState.h"
#include "logs/Events.h"
#include "platform/clock.h"
#include "support/timeZone.h"
#include "vdreader/log.h"

namespace {

constexpr int kYear = 2026;
constexpr int kDays = 365;

// Log lines without headers and without the program's name.
std::string textOf(const std::string& bytes) {
    std::string text;
    for (std::size_t at = 0; at < bytes.size();) {
        const std::size_t end = bytes.find("\r\n", at);
        const std::string line = bytes.substr(at, end - at);
        constexpr char kLead[] = ": Error: ";
        const std::size_t lead = line.find(kLead);
        text += lead == std::string::npos ? "?" + line : line.substr(lead + sizeof kLead - 1);
        text += '\n';
        at = end == std::string::npos ? bytes.size() : end + 2;
    }
    return text;
}

class Year {
  public:
    Year(const char* zone, const std::string& ini) {
        setTimeZone(zone);
        m_ini = m_folder.files().write("ini", ini);
    }

    // The starts of a day, in order: often at its first or last second, none on some days.
    std::vector<std::int64_t> startsOf(int day) {
        const std::int64_t first = midnight(kYear, day);
        const std::int64_t last = midnight(kYear, day + 1) - 1;
        std::vector<std::int64_t> starts;
        if (m_random() % 2 != 0)
            starts.push_back(first);
        for (unsigned more = m_random() % 3; more > 0; --more)
            starts.push_back(first + 1 + m_random() % (last - first - 1));
        if (m_random() % 2 != 0)
            starts.push_back(last);
        std::sort(starts.begin(), starts.end());
        return starts;
    }

    // One start of a process that opens its log and writes a line.
    void start(std::int64_t now) {
        RotatingFolder::setClock(now);
        Events<ErrorsTlsPtr> log;
        log.setThreadFile(m_path.c_str(), m_ini.c_str());
        error("line of %lld", static_cast<long long>(now));
        threadLogState().errorsFile.reset();
    }

    // The lines that the starts of one day leave.
    std::string linesOf(const std::vector<std::int64_t>& starts) const {
        std::string lines;
        for (const std::int64_t start : starts) {
            if (start != starts.front())
                lines += "Info: Rotation is not started. The creation day of the " + m_path +
                         " is " + std::to_string(platform::localTime(start).tm_mday) + "(today).\n";
            lines += "line of " + std::to_string(start) + "\n";
        }
        return lines;
    }

    // Lives through the year and compares live file and copies, of which there are `depth`, after
    // each day.
    void live(std::size_t depth) {
        std::deque<std::string> days; // the newest in front
        for (int day = 1; day <= kDays && !testing::Test::HasFailure(); ++day) {
            const std::vector<std::int64_t> starts = startsOf(day);
            for (const std::int64_t now : starts)
                start(now);
            if (starts.empty())
                continue;
            days.push_front(linesOf(starts));
            if (days.size() > depth + 1)
                days.pop_back();
            expectDays(day, days);
        }
        EXPECT_EQ(days.size(), depth + 1);
    }

    // The only file's number of lines.
    std::size_t lines() const {
        const auto files = m_folder.all();
        EXPECT_EQ(files.size(), 2u); // with the ini file
        const std::string text = textOf(files.at("log.txt"));
        return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
    }

  private:
    void expectDays(int day, const std::deque<std::string>& days) const {
        auto files = m_folder.all();
        EXPECT_EQ(files.erase("ini"), 1u);
        EXPECT_EQ(files.size(), days.size()) << "day " << day;
        for (std::size_t i = 0; i < days.size(); ++i) {
            const std::string file = i == 0 ? "log.txt" : "log.txt." + std::to_string(i);
            EXPECT_EQ(textOf(files[file]), days[i]) << "day " << day << ", " << file;
        }
    }

    RotatingFolder m_folder;
    std::string m_path = m_folder.name("log.txt");
    std::string m_ini;
    std::mt19937 m_random{20261121};
};

} // namespace

TEST(RotationYear, CopiesHoldTheDaysBefore) {
    Year("UTC0", "[files]\nlogdepth=5\n").live(5);
}

TEST(RotationYear, DaysOf23And25HoursCountAsDays) {
    Year("CST6CDT", "[logfile]\nrotate=log.txt,3\n").live(3);
}

TEST(RotationYear, MidnightIsThatOfTheZone) {
    Year("XYZ-9", "[files]\nlogdepth=2\n").live(2);
}

TEST(RotationYear, DepthOneKeepsTheDayBefore) {
    Year("UTC0", "[files]\nlogdepth=1\n").live(1);
}

TEST(RotationYear, NegativeDepthKeepsTheDayBefore) {
    Year("UTC0", "[files]\nlogdepth=-7\n").live(1);
}

TEST(RotationYear, DepthZeroKeepsTodayAlone) {
    Year("UTC0", "[logfile]\nrotate=log.txt,0\n").live(0);
}

TEST(RotationYear, WithoutSettingsOneFileHoldsAll) {
    Year year("UTC0", "");
    for (int day = 1; day <= kDays; ++day)
        year.start(midnight(kYear, day));
    EXPECT_EQ(year.lines(), static_cast<std::size_t>(kDays));
}
