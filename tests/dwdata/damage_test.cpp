// Damaged data files in memory: cut at every byte, with every byte changed, and read by a system
// whose calls fail.  Which text comes and what stays behind is told by the layout of the file and
// by a second reader of the format.

#include <gtest/gtest.h>

#include <iostream>
#include <set>
#include <string>
#include <vector>

#include "../../fuzz/reference/classDifference.h"
#include "../../fuzz/reference/damageSample.h"
#include "../../fuzz/reference/flatFields.h"
#include "../../fuzz/support/memoryFiles.h"
#include "dw_util/pathRule.h"
#include "libn/Ini.h"
#include "readerState.h"
#include "sample/bytes.h"
#include "sample/futuresFiles.h"
#include "support/raised.h"
#include "vdreader/readers.h"

namespace {

using fuzzing::Call;
using fuzzing::FaultPlan;
using reference::Match;

const char* const kClassPath = "/memory/class.vd";

// The classes in memory, whether the reader is ready or not.
std::vector<reference::LoadedClass> classesInMemory() {
    std::vector<reference::LoadedClass> classes;
    for (sClassParUnitedDesc& held : readerState().model.classes()) {
        reference::LoadedClass& loaded = classes.emplace_back();
        loaded.handle = &held;
        for (SECURITY_DESC& security : held.securities)
            loaded.securities.push_back(&security);
        for (PARAMS_DESC& param : held.params)
            loaded.params.push_back(&param);
    }
    return classes;
}

class ClassDamage : public testing::Test {
  protected:
    ClassDamage()
        : m_sample(reference::makeDamageSample()),
          m_good(sample::encodeClassFile({m_sample.classes[2]})) {
        PathBuffer path = {};
        resolvePath(path, kClassPath);
        m_path = path;
    }

    std::int32_t load(std::string_view bytes, const FaultPlan& plan = {}) {
        m_files.put("class.vd", bytes);
        m_files.plan(plan);
        readerState().model = ClassModel();
        const std::int32_t result = init_vdreader_classes_file(kClassPath);
        EXPECT_EQ(0u, m_files.openCount());
        return result;
    }

    // Result, text and memory are what the second reader finds; a good file loads afterwards.
    // Empty, or what differs.
    std::string loadDifference(const std::string& bytes, const reference::ClassFile& wanted) {
        const std::string before = bytes;
        const std::int32_t result = load(bytes);
        if (bytes != before)
            return "the file changed";
        if (result != (wanted.failure.empty() ? 1 : 0))
            return "result " + std::to_string(result) + " for the text " + wanted.failure;
        if (result == 0 && wanted.failure != get_vdreader_error())
            return "text " + std::string(get_vdreader_error()) + " for " + wanted.failure;
        if (result == 0 && for_each_class(reference::walks::takeClass) != 0)
            return "a walk works after a load that failed";
        const std::string found =
            difference(result == 1 ? reference::loadedClasses() : classesInMemory(), wanted);
        if (!found.empty())
            return found;
        return load(m_good) == 1 && readerState().model.classes().size() == 1
                   ? ""
                   : "a good file does not load afterwards";
    }

    // Changes each byte of [begin, end) to several values.  Changes that ask for more memory than a
    // test of this kind should take are left to AbsurdCounts.
    void changeBytes(std::size_t begin, std::size_t end) {
        std::string bytes = m_sample.bytes;
        std::size_t loads = 0;
        std::size_t tooLarge = 0;
        for (std::size_t at = begin; at < end; ++at) {
            const char stored = bytes[at];
            for (const unsigned char value :
                 reference::changesOf(static_cast<unsigned char>(stored))) {
                bytes[at] = static_cast<char>(value);
                const auto wanted = reference::readClassFile(bytes, m_path);
                if (wanted.bytesMade > (std::uint64_t{4} << 20)) {
                    ++tooLarge;
                    continue;
                }
                ++loads;
                ASSERT_EQ("", loadDifference(bytes, wanted))
                    << "byte " << at << " changed to " << int{value};
            }
            bytes[at] = stored;
        }
        EXPECT_GT(loads, (end - begin) * 7);
        EXPECT_LT(tooLarge, loads / 20);
    }

    fuzzing::MemoryFiles m_files;
    reference::DamageSample m_sample;
    const std::string m_good; // a small file that loads
    std::string m_path;
};

TEST_F(ClassDamage, SampleLoadsWhole) {
    const auto wanted = reference::readClassFile(m_sample.bytes, m_path);
    EXPECT_EQ("", wanted.failure);
    EXPECT_EQ("", loadDifference(m_sample.bytes, wanted));
    ASSERT_EQ(3u, wanted.classes.size());
    EXPECT_EQ(2u, wanted.classes[0].securities[0].subDescs.size());
    EXPECT_EQ(std::string(300, 'l'), wanted.classes[0].securities[0].names[0].longName);
}

TEST_F(ClassDamage, EveryCutGivesTheTextOfItsPlace) {
    std::set<std::string> texts;
    for (std::size_t size = 0; size < m_sample.bytes.size(); ++size) {
        const std::string cut = m_sample.bytes.substr(0, size);
        const std::string text = reference::cutFailure(m_sample, size, m_path);
        const auto wanted = reference::readClassFile(cut, m_path);
        ASSERT_EQ(text, wanted.failure) << "cut at " << size;
        ASSERT_EQ("", loadDifference(cut, wanted)) << "cut at " << size;
        texts.insert(text);
    }
    // Head, version, info block, the records 0, 1 and 3, both kinds of blocks, and no text for the
    // last block.  What is cut in front of record 2 lacks a block that is read before it.
    EXPECT_EQ(9u, texts.size());
}

TEST_F(ClassDamage, EveryByteOfHeadAndInfoBlockChanged) {
    changeBytes(0, sample::kRecordsOffset);
}

TEST_F(ClassDamage, EveryByteOfTheFirstHalfOfARecordChanged) {
    changeBytes(sample::kRecordsOffset, sample::kRecordsOffset + 1732);
}

TEST_F(ClassDamage, EveryByteOfTheSecondHalfOfARecordChanged) {
    changeBytes(sample::kRecordsOffset + 1732, sample::kRecordsOffset + 3464);
}

TEST_F(ClassDamage, EveryByteOfTheFirstBlocksChanged) {
    const auto& layout = m_sample.layout;
    changeBytes(layout.classes[0].securitiesBlock, layout.classes[2].securitiesBlock);
}

TEST_F(ClassDamage, EveryByteOfTheLastBlocksChanged) {
    const auto& layout = m_sample.layout;
    changeBytes(layout.classes[2].securitiesBlock, layout.fileSize);
}

// The last class holds securities alone, so a cut in them fails no load.
TEST_F(ClassDamage, CutInsideAFieldLeavesItAndAllBehindItAtTheirDefaults) {
    const std::size_t security = m_sample.layout.classes[3].securities[0];
    const sample::Security& whole = m_sample.classes[3].securities[0];
    std::size_t names = 0;
    for (const sample::Name& name : whole.names)
        names += 10 + (name.long_name.empty() ? 0 : name.long_name.size() + 1) +
                 (name.short_name.empty() ? 0 : name.short_name.size() + 1);
    const std::size_t faceValue = security + 72 + names + 40;
    ASSERT_EQ(1, load(std::string_view(m_sample.bytes).substr(0, faceValue + 7)));
    const auto classes = reference::loadedClasses();
    ASSERT_EQ(2u, classes[2].securities.size());
    const SECURITY_DESC& half = *classes[2].securities[0];
    EXPECT_EQ(4u, half.sec_id);
    EXPECT_STREQ("SEC4", half.sec_code);
    ASSERT_EQ(2u, half.names.size());
    EXPECT_EQ(std::string(300, 'l'), half.names[0].long_name);
    EXPECT_EQ(25u, half.min_step);
    EXPECT_EQ(0.0, half.face_value);
    EXPECT_STREQ("", half.face_unit);
    EXPECT_EQ(1u, half.lot_size);
    EXPECT_TRUE(half.subDescs.empty());
    EXPECT_EQ(1, half.unnamedValue2);
    EXPECT_EQ(-1, half.unnamedValue3);
    EXPECT_EQ("", difference(*classes[2].securities[1],
                             {reference::defaultSecurity(), 0, {}, 0, {}}, Match::Exact));
}

TEST_F(ClassDamage, CutInsideATextLeavesItEmptyAndKeepsTheCountOfNames) {
    const std::size_t security = m_sample.layout.classes[3].securities[0];
    ASSERT_EQ(1, load(std::string_view(m_sample.bytes).substr(0, security + 72 + 6 + 300)));
    const SECURITY_DESC& half = *reference::loadedClasses()[2].securities[0];
    ASSERT_EQ(2u, half.names.size());
    EXPECT_EQ("", half.names[0].long_name);
    EXPECT_EQ("", half.names[0].short_name);
    EXPECT_EQ(0, half.names[1].lang);
    EXPECT_EQ(0u, half.min_step);
}

// The bytes behind a text that is too long for the file are not taken for the fields behind it.
TEST_F(ClassDamage, TextLongerThanTheFileEndsTheBlock) {
    std::string bytes = m_sample.bytes;
    const std::size_t security = m_sample.layout.classes[3].securities[0];
    sample::putNumber(bytes, security + 72 + 2, std::uint32_t{0x00FFFFFF});
    ASSERT_EQ("", loadDifference(bytes, reference::readClassFile(bytes, m_path)));
    ASSERT_EQ(1, load(bytes));
    const SECURITY_DESC& half = *reference::loadedClasses()[2].securities[0];
    EXPECT_EQ("", half.names[0].short_name);
    EXPECT_EQ(0u, half.min_step);
    EXPECT_EQ(1u, half.lot_size);
    EXPECT_STREQ("", half.benchmark);
}

TEST_F(ClassDamage, AbsurdCountsAreMadeOrRefused) {
    constexpr std::uint64_t kMost = std::uint64_t{1} << 30;
    const sample::ClassRecordLayout& last = m_sample.layout.classes[3];
    const struct {
        std::size_t at;
        std::size_t elementSize;
        bool endsTheFile; // nothing behind it is taken for more elements
    } counts[] = {
        {last.record + sample::classRecord::kSecuritiesCount, sizeof(SECURITY_DESC), true},
        {m_sample.layout.classes[2].record + sample::classRecord::kParamsCount, sizeof(PARAMS_DESC),
         false},
        {m_sample.layout.classes[2].params[0] + 23, sizeof(PARAM_NAME), false},
        {last.securities[1] + 68, sizeof(SECURITY_NAME), false},
        {m_sample.bytes.size() - 246 - 2 * 47 - 4, sizeof(SECURITY_SUBDESC), true}};
    for (const auto& [at, elementSize, endsTheFile] : counts) {
        std::string bytes = m_sample.bytes;
        sample::putNumber(bytes, at, static_cast<std::uint32_t>(kMost / elementSize + 1));
        auto wanted = reference::readClassFile(bytes, m_path);
        EXPECT_EQ("vector too long", wanted.failure);
        EXPECT_EQ("", loadDifference(bytes, wanted)) << "count at " << at;

        const std::uint64_t many = kMost / 8 / elementSize;
        sample::putNumber(bytes, at, static_cast<std::uint32_t>(many));
        wanted = reference::readClassFile(bytes, m_path);
        if (endsTheFile) {
            EXPECT_EQ("", wanted.failure);
            EXPECT_GE(wanted.bytesMade, many * elementSize);
        }
        EXPECT_EQ("", loadDifference(bytes, wanted)) << "count at " << at;
    }
}

// ---- calls that fail ----

TEST_F(ClassDamage, ShortCountsChangeNothing) {
    const auto wanted = reference::readClassFile(m_sample.bytes, m_path);
    for (std::uint32_t seed = 1; seed <= 200; ++seed) {
        FaultPlan plan;
        plan.shortCounts = seed;
        ASSERT_EQ(1, load(m_sample.bytes, plan)) << seed;
        ASSERT_EQ("", difference(reference::loadedClasses(), wanted)) << seed;
    }
}

// Each call in turn fails once, or from then on for good, until no call is left to fail.
TEST_F(ClassDamage, EachFailingCallEndsInAKnownTextAndTheNextLoadWorks) {
    const auto wanted = reference::readClassFile(m_sample.bytes, m_path);
    std::set<std::string> known = {"", "reader for classes can not be initialized",
                                   "STORE_CLASS_DESC has an invalid record format (index=2)"};
    for (std::size_t size = 0; size < m_sample.bytes.size(); ++size)
        known.insert(reference::cutFailure(m_sample, size, m_path));
    for (const bool forGood : {false, true}) {
        std::uint32_t calls = 0;
        for (bool failed = true; failed;) {
            FaultPlan plan;
            plan.shortCounts = 77;
            plan.failingCall = ++calls;
            plan.failsForGood = forGood;
            const std::int32_t result = load(m_sample.bytes, plan);
            failed = m_files.failedCalls() > 0;
            const std::string text = result == 1 ? "" : get_vdreader_error();
            ASSERT_TRUE(known.contains(text)) << calls << ": " << text;
            const auto loaded = classesInMemory();
            ASSERT_LE(loaded.size(), wanted.classes.size());
            for (std::size_t i = 0; i < loaded.size(); ++i)
                ASSERT_EQ("", difference(loaded[i], wanted.classes[i], Match::WholeOrDefault));
            ASSERT_EQ("", loadDifference(m_sample.bytes, wanted)) << "after failing call " << calls;
        }
        EXPECT_GT(calls, 10u);
    }
}

TEST_F(ClassDamage, CallsThatAlwaysFail) {
    const auto wanted = reference::readClassFile(m_sample.bytes, m_path);
    FaultPlan plan;
    plan.failing = {Call::Open};
    EXPECT_EQ(0, load(m_sample.bytes, plan));
    EXPECT_STREQ("reader for classes can not be initialized", get_vdreader_error());
    plan.failing = {Call::Read};
    EXPECT_EQ(0, load(m_sample.bytes, plan));
    EXPECT_EQ("vd-file '" + m_path + "' has invalid format", get_vdreader_error());
    // The size is a hint alone.
    plan.failing = {Call::Size};
    EXPECT_EQ(1, load(m_sample.bytes, plan));
    EXPECT_EQ("", difference(reference::loadedClasses(), wanted));
    EXPECT_EQ("", loadDifference(m_sample.bytes, wanted));
}

TEST_F(ClassDamage, MemoryThatIsRefusedFailsTheLoadAlone) {
    sample::ClassRecord large = m_sample.classes[0];
    large.storedSecuritiesCount = 5000;
    const std::string bytes = sample::encodeClassFile({large, m_sample.classes[2]});
    FaultPlan plan;
    plan.failing = {Call::Large};
    EXPECT_EQ(0, load(bytes, plan));
    EXPECT_STREQ("std::bad_alloc", get_vdreader_error());
    EXPECT_EQ("", loadDifference(m_sample.bytes, reference::readClassFile(m_sample.bytes, m_path)));
}

TEST_F(ClassDamage, ProgramWithoutAPathLeavesTheNameAlone) {
    m_files.put("class.vd", m_sample.bytes);
    FaultPlan plan;
    plan.failing = {Call::Program};
    m_files.plan(plan);
    EXPECT_EQ(1, init_vdreader_classes_file("class.vd"));
    EXPECT_EQ(1u, m_files.failedCalls());
}

// ---- ini files ----

TEST(IniDamage, EachFailingCallGivesDefaultsOrTheLineOfTheRead) {
    const std::string text = "[s]\nkey=1\nother=2\n\nlast=3\n";
    fuzzing::MemoryFiles files;
    files.put("host.ini", text);
    for (std::uint32_t call = 1;; ++call) {
        FaultPlan plan;
        plan.shortCounts = 5;
        plan.failingCall = call;
        files.plan(plan);
        std::string value = "(none)";
        const std::string raised =
            raisedText([&] { value = libn::Ini("/memory/host.ini").getValue("s", "last"); });
        EXPECT_EQ(0u, files.openCount());
        if (files.failedCalls() == 0) {
            EXPECT_EQ("3", value);
            EXPECT_GT(call, 3u);
            return;
        }
        if (call == 1) {
            EXPECT_EQ("", value); // a file that does not open has no keys
        } else {
            const auto read = static_cast<std::ptrdiff_t>(files.delivered());
            const auto line = 1 + std::count(text.begin(), text.begin() + read, '\n');
            EXPECT_EQ("Read ini file error. File/memory/host.ini line:" + std::to_string(line),
                      raised);
        }
    }
}

// ---- flat files ----

std::vector<std::string> walked;
std::string walkDifference;

template <class Record>
std::int32_t take(Record* record) {
    std::string bytes(reference::sizeOf(record), '\0');
    std::memcpy(bytes.data(), static_cast<const void*>(record), bytes.size());
    if (walkDifference.empty())
        walkDifference = reference::fieldDifference(record, bytes);
    walked.push_back(std::move(bytes));
    return 1;
}

// One walk over `bytes`; the result.
std::int32_t walkFlat(fuzzing::MemoryFiles& files, bool positions, std::string_view bytes,
                      const FaultPlan& plan = {}) {
    files.put("walked.vd", bytes);
    files.plan(plan);
    walked.clear();
    walkDifference.clear();
    readerState().lastError = "before";
    (positions ? readerState().futPositionsFile : readerState().futLimitsFile) = "walked.vd";
    return positions ? for_each_futposition(take<sFutPosition>)
                     : for_each_futlimit(take<sFutLimit>);
}

std::string flatFile(bool positions) {
    std::string bytes;
    for (std::size_t i = 0; i < 3 * (positions ? reference::kPositionSize : reference::kLimitSize);
         ++i)
        bytes.push_back(static_cast<char>(i * 7 + i / 256));
    return bytes;
}

class FlatDamage : public testing::TestWithParam<bool> {
  protected:
    std::size_t recordSize() const {
        return GetParam() ? reference::kPositionSize : reference::kLimitSize;
    }
    std::string openFailure() const {
        return std::string(GetParam() ? "fclipos" : "flimits") +
               " file walked.vd can not be opened";
    }

    fuzzing::MemoryFiles m_files;
    const std::string m_bytes = flatFile(GetParam());
};

TEST_P(FlatDamage, EveryCutGivesTheWholeRecordsInFrontOfIt) {
    for (std::size_t size = 0; size <= m_bytes.size(); ++size) {
        ASSERT_EQ(1, walkFlat(m_files, GetParam(), std::string_view(m_bytes).substr(0, size)));
        ASSERT_STREQ("before", get_vdreader_error());
        ASSERT_EQ("", walkDifference);
        ASSERT_EQ(size / recordSize(), walked.size()) << "cut at " << size;
        for (std::size_t i = 0; i < walked.size(); ++i)
            ASSERT_EQ(m_bytes.substr(i * recordSize(), recordSize()), walked[i]);
    }
}

TEST_P(FlatDamage, EveryByteChangedComesOutAsItStands) {
    std::string bytes = m_bytes;
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        bytes[at] = static_cast<char>(~bytes[at]);
        ASSERT_EQ(1, walkFlat(m_files, GetParam(), bytes));
        ASSERT_EQ("", walkDifference);
        ASSERT_EQ(3u, walked.size());
        ASSERT_EQ(bytes, walked[0] + walked[1] + walked[2]) << "byte " << at;
        bytes[at] = m_bytes[at];
    }
}

TEST_P(FlatDamage, EachFailingCallEndsTheWalkInOrderAndTheNextOneWorks) {
    // Open, seek to the end, tell, seek back, one read.
    for (std::uint32_t call = 1; call <= 5; ++call) {
        FaultPlan plan;
        plan.failingCall = call;
        const std::int32_t result = walkFlat(m_files, GetParam(), m_bytes, plan);
        EXPECT_EQ(1u, m_files.failedCalls()) << call;
        EXPECT_EQ(call == 1 ? 0 : 1, result) << call;
        EXPECT_EQ(call == 1 ? openFailure() : "before", get_vdreader_error()) << call;
        // A length that is not known is no border: the records are read to their end.
        EXPECT_EQ(call == 3 ? 3u : 0u, walked.size()) << call;
        EXPECT_EQ(1, walkFlat(m_files, GetParam(), m_bytes));
        EXPECT_EQ(3u, walked.size());
    }
    FaultPlan plan;
    plan.failingCall = 6;
    EXPECT_EQ(1, walkFlat(m_files, GetParam(), m_bytes, plan));
    EXPECT_EQ(0u, m_files.failedCalls());
    EXPECT_EQ(3u, walked.size());
}

TEST_P(FlatDamage, OpenThatAlwaysFailsNamesTheFile) {
    FaultPlan plan;
    plan.failing = {Call::OpenStream};
    EXPECT_EQ(0, walkFlat(m_files, GetParam(), m_bytes, plan));
    EXPECT_EQ(openFailure(), get_vdreader_error());
    plan.failing = {Call::ReadStream};
    EXPECT_EQ(1, walkFlat(m_files, GetParam(), m_bytes, plan));
    EXPECT_TRUE(walked.empty());
}

INSTANTIATE_TEST_SUITE_P(Files, FlatDamage, testing::Bool(),
                         [](const auto& kind) { return kind.param ? "Positions" : "Limits"; });

} // namespace
