// The readers of futures limits and positions.

#include <gtest/gtest.h>

#ifdef _WIN32
#  include <stdio.h>
#else
#  include <sys/resource.h>
#endif

#include <filesystem>
#include <limits>
#include <stdexcept>

#include "readers.h"

namespace {

sample::FutLimit distinctLimit() {
    sample::FutLimit limit;
    limit.firmid = "FIRM";
    limit.trdaccid = "ACCOUNT";
    limit.limit_type = 0xFFFE;
    limit.liquidity_coeff = 1.5;
    limit.cbp_prev_limit = 2.5;
    limit.cbplimit = 3.5;
    limit.cbplused = 4.5;
    limit.cbplplanned = 5.5;
    limit.varmargin = 6.5;
    limit.accruedint = 7.5;
    limit.kgo = 8.5;
    limit.cbplused_for_orders = 9.5;
    limit.cbplused_for_positions = 10.5;
    limit.options_premium = 11.5;
    limit.net_options_value = 12.5;
    limit.ts_comission = 13.5;
    limit.currcode = "CURR";
    limit.real_varmargin = 14.5;
    limit.risk_level = 0xFFFFFFFD;
    limit.go_planned = 15.5;
    limit.go_without_orders = 16.5;
    limit.indicative_varmargin = 17.5;
    return limit;
}

sample::FutPosition distinctPosition() {
    sample::FutPosition position;
    position.firmid = "FIRM";
    position.trdaccid = "ACCOUNT";
    position.seccode = "SECURITY";
    position.start_buy = -1;
    position.start_sell = -2;
    position.start_net = -3;
    position.today_buy = std::numeric_limits<std::int32_t>::min();
    position.today_sell = std::numeric_limits<std::int32_t>::max();
    position.total_net = -5;
    position.open_buys = -7;
    position.open_sells = -8;
    position.cbplplanned = 1.5;
    position.varmargin = 2.5;
    position.avrposnprice = 3.5;
    position.positionvalue = 4.5;
    position.total_varmargin = 5.5;
    position.real_varmargin = 6.5;
    position.premium = 7.5;
    return position;
}

#define EXPECT_LIMIT(field) EXPECT_EQ(get_sFutLimit_##field(limit), written.field)
#define EXPECT_POSITION(field) EXPECT_EQ(get_sFutPosition_##field(position), written.field)

std::int32_t checkLimit(sFutLimit* limit) {
    const sample::FutLimit written = distinctLimit();
    EXPECT_LIMIT(accruedint);
    EXPECT_LIMIT(cbp_prev_limit);
    EXPECT_LIMIT(cbplimit);
    EXPECT_LIMIT(cbplplanned);
    EXPECT_LIMIT(cbplused);
    EXPECT_LIMIT(cbplused_for_orders);
    EXPECT_LIMIT(cbplused_for_positions);
    EXPECT_LIMIT(go_planned);
    EXPECT_LIMIT(go_without_orders);
    EXPECT_LIMIT(indicative_varmargin);
    EXPECT_LIMIT(kgo);
    EXPECT_LIMIT(liquidity_coeff);
    EXPECT_LIMIT(net_options_value);
    EXPECT_LIMIT(options_premium);
    EXPECT_LIMIT(real_varmargin);
    EXPECT_LIMIT(ts_comission);
    EXPECT_LIMIT(varmargin);
    EXPECT_LIMIT(currcode);
    EXPECT_LIMIT(firmid);
    EXPECT_LIMIT(trdaccid);
    EXPECT_LIMIT(limit_type);
    EXPECT_LIMIT(risk_level);
    return noteLimit(limit);
}

std::int32_t checkPosition(sFutPosition* position) {
    const sample::FutPosition written = distinctPosition();
    EXPECT_POSITION(avrposnprice);
    EXPECT_POSITION(cbplplanned);
    EXPECT_POSITION(positionvalue);
    EXPECT_POSITION(premium);
    EXPECT_POSITION(real_varmargin);
    EXPECT_POSITION(total_varmargin);
    EXPECT_POSITION(varmargin);
    EXPECT_POSITION(firmid);
    EXPECT_POSITION(seccode);
    EXPECT_POSITION(trdaccid);
    EXPECT_POSITION(open_buys);
    EXPECT_POSITION(open_sells);
    EXPECT_POSITION(start_buy);
    EXPECT_POSITION(start_net);
    EXPECT_POSITION(start_sell);
    EXPECT_POSITION(today_buy);
    EXPECT_POSITION(today_sell);
    EXPECT_POSITION(total_net);
    return notePosition(position);
}

// One of the two readers, so that what they share is tested on both.
struct Reader {
    const char* file;
    const char* walkText;
    std::size_t recordSize;
    std::int32_t (*init)(const char*, const char*);
    std::int32_t (*walk)();
    std::int32_t (*brokenWalk)();
};

std::ostream& operator<<(std::ostream& out, const Reader& reader) {
    return out << reader.file;
}

const Reader kReaders[] = {
    {"flimit.vd", "flimits file ", 216, init_vdreader_futlimits,
     [] { return for_each_futlimit(noteLimit); },
     [] {
         return for_each_futlimit(
             [](sFutLimit*) -> std::int32_t { throw std::runtime_error("x"); });
     }},
    {"fclipos.vd", "fclipos file ", 168, init_vdreader_futpositions,
     [] { return for_each_futposition(notePosition); },
     [] {
         return for_each_futposition(
             [](sFutPosition*) -> std::int32_t { throw std::runtime_error("x"); });
     }},
};

// Few open streams for the scope, where the system's own limit is high.
class FewStreams {
#ifndef _WIN32
  public:
    FewStreams() {
        getrlimit(RLIMIT_NOFILE, &m_former);
        rlimit few = m_former;
        few.rlim_cur = 200;
        setrlimit(RLIMIT_NOFILE, &few);
    }
    ~FewStreams() {
        setrlimit(RLIMIT_NOFILE, &m_former);
    }

  private:
    rlimit m_former = {};
#endif
};

class Futures : public testing::TestWithParam<Reader> {
  protected:
#ifdef _WIN32
    // The streams that walks leave open would keep the folder from going.
    ~Futures() override {
        _fcloseall();
    }
#endif

    // Writes the reader's file and initialises it.
    void initOn(std::size_t bytes) {
        m_folder.write(GetParam().file, std::string(bytes, 'x'));
        ASSERT_EQ(GetParam().init(m_folder.writeIni().c_str(), "s"), 1) << lastError();
    }

    ReaderFolder m_folder;
};

} // namespace

INSTANTIATE_TEST_SUITE_P(Both, Futures, testing::ValuesIn(kReaders),
                         [](const auto& info) { return info.index == 0 ? "Limits" : "Positions"; });

TEST(FutLimits, AllFieldsAreThoseOfTheFile) {
    const ReaderFolder folder;
    folder.write("flimit.vd", sample::encodeFutLimits({distinctLimit(), distinctLimit()}));
    ASSERT_EQ(init_vdreader_futlimits(folder.writeIni().c_str(), "s"), 1) << lastError();
    EXPECT_EQ(for_each_futlimit(checkLimit), 1);
    EXPECT_EQ(seen.records, 2);
}

TEST(FutPositions, AllFieldsAreThoseOfTheFile) {
    const ReaderFolder folder;
    folder.write("fclipos.vd",
                 sample::encodeFutPositions({distinctPosition(), distinctPosition()}));
    ASSERT_EQ(init_vdreader_futpositions(folder.writeIni().c_str(), "s"), 1) << lastError();
    EXPECT_EQ(for_each_futposition(checkPosition), 1);
    EXPECT_EQ(seen.records, 2);
}

TEST_P(Futures, NeedNoOtherReader) {
    initOn(GetParam().recordSize);
    EXPECT_EQ(GetParam().walk(), 1);
    EXPECT_EQ(seen.records, 1);
    EXPECT_EQ(lastError(), "Unknown error");
}

TEST_P(Futures, LengthsOfTheFile) {
    const std::size_t size = GetParam().recordSize;
    for (const auto& [bytes, records] : std::vector<std::pair<std::size_t, int>>{
             {0, 0}, {1, 0}, {size - 1, 0}, {size, 1}, {size + 84, 1}, {2 * size, 2}}) {
        seen.records = 0;
        initOn(bytes);
        EXPECT_EQ(GetParam().walk(), 1) << bytes;
        EXPECT_EQ(seen.records, records) << bytes;
    }
}

TEST_P(Futures, CallbackResults) {
    initOn(5 * GetParam().recordSize);
    for (const auto& [answer, result] :
         std::vector<std::pair<int, int>>{{2, 1}, {3, 0}, {0, 0}, {-1, 0}}) {
        seen = {};
        seen.answer = answer;
        seen.answerAt = 2;
        EXPECT_EQ(GetParam().walk(), result) << answer;
        EXPECT_EQ(seen.records, 2);
    }
    EXPECT_EQ(lastError(), "Unknown error");
}

TEST_P(Futures, ExceptionOfTheCallbackBecomesTheText) {
    initOn(GetParam().recordSize);
    EXPECT_EQ(GetParam().brokenWalk(), 0);
    EXPECT_EQ(lastError(), "x");
}

TEST_P(Futures, EachWalkSeesTheFileAsItIs) {
    initOn(0);
    EXPECT_EQ(GetParam().walk(), 1);
    m_folder.write(GetParam().file, std::string(3 * GetParam().recordSize, 'x'));
    EXPECT_EQ(GetParam().walk(), 1);
    EXPECT_EQ(seen.records, 3);
}

TEST_P(Futures, BeforeAnInitialisationTheNameIsThatInTheWorkingFolder) {
    std::filesystem::current_path(m_folder.path());
    EXPECT_EQ(GetParam().walk(), 0);
    EXPECT_EQ(lastError(),
              std::string(GetParam().walkText) + GetParam().file + " can not be opened");
    m_folder.write(GetParam().file, std::string(GetParam().recordSize, 'x'));
    EXPECT_EQ(GetParam().walk(), 1);
    EXPECT_EQ(seen.records, 1);
    std::filesystem::current_path(std::filesystem::temp_directory_path());
}

TEST_P(Futures, MissingFileHasTwoTexts) {
    const std::string name = m_folder.name(GetParam().file);
    EXPECT_EQ(GetParam().init(m_folder.writeIni().c_str(), "s"), 0);
    EXPECT_EQ(lastError(), "alerts file " + name + " can not be opened");
    EXPECT_EQ(GetParam().walk(), 0);
    EXPECT_EQ(lastError(), GetParam().walkText + name + " can not be opened");
}

TEST_P(Futures, FailedInitialisationKeepsTheConfiguredName) {
    const std::string ini =
        m_folder.write("other.ini", "[s]\nflimits=no such.vd\nfclipos=no such.vd\n");
    EXPECT_EQ(GetParam().init(ini.c_str(), "s"), 0);
    EXPECT_EQ(lastError().rfind("alerts file ", 0), 0u);
    EXPECT_NE(lastError().find("no such.vd can not be opened"), std::string::npos);
    EXPECT_EQ(GetParam().walk(), 0);
    EXPECT_EQ(lastError(), std::string(GetParam().walkText) + "no such.vd can not be opened");
}

TEST_P(Futures, InitialisationAgainTakesTheOtherFile) {
    initOn(GetParam().recordSize);
    const ReaderFolder other;
    other.write(GetParam().file, std::string(4 * GetParam().recordSize, 'x'));
    ASSERT_EQ(GetParam().init(other.writeIni().c_str(), "s"), 1);
    EXPECT_EQ(GetParam().walk(), 1);
    EXPECT_EQ(seen.records, 4);
}

TEST_P(Futures, EachWalkCostsAStreamUntilThereAreNoMore) {
#ifdef VDREADER_SANITIZED
    GTEST_SKIP() << "the checker of virtual calls needs a descriptor of its own";
#endif
    initOn(GetParam().recordSize);
    const FewStreams limit;
    int walks = 0;
    while (walks < 1000 && GetParam().walk() == 1)
        ++walks;
    EXPECT_LT(walks, 1000);
    EXPECT_GT(walks, 10);
    EXPECT_EQ(lastError(),
              GetParam().walkText + m_folder.name(GetParam().file) + " can not be opened");
}

TEST_P(Futures, WalkLeavesTheFileAsItWas) {
    initOn(3 * GetParam().recordSize + 5);
    EXPECT_EQ(GetParam().walk(), 1);
    EXPECT_EQ(m_folder.read(GetParam().file), std::string(3 * GetParam().recordSize + 5, 'x'));
}

TEST(FutLimits, WalkInsideAWalkHasItsOwnBuffer) {
    const ReaderFolder folder;
    sample::FutLimit first = distinctLimit();
    sample::FutLimit second = distinctLimit();
    second.firmid = "OTHER";
    folder.write("flimit.vd", sample::encodeFutLimits({first, second}));
    ASSERT_EQ(init_vdreader_futlimits(folder.writeIni().c_str(), "s"), 1);
    EXPECT_EQ(for_each_futlimit([](sFutLimit* limit) -> std::int32_t {
                  const std::string before = get_sFutLimit_firmid(limit);
                  EXPECT_EQ(for_each_futlimit(noteLimit), 1);
                  EXPECT_EQ(get_sFutLimit_firmid(limit), before);
                  return 1;
              }),
              1);
    EXPECT_EQ(seen.records, 4);
}
