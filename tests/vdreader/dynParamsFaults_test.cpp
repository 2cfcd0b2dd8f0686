// The dynamic parameters reader while calls of the platform fail.

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "DataView/storageLedger.h"
#include "libn/memTraceTable.h"
#include "readerState.h"
#include "sample/classFile.h"
#include "sample/dataFile.h"
#include "support/capturedLog.h"
#include "support/countedNew.h"
#include "support/failingMalloc.h"
#include "support/raised.h"
#include "support/tempFolder.h"
#include "vdreader/vdreader.h"

namespace {

int records = 0;
sSecurityDesc* found = nullptr;

class DynParamsFaults : public testing::Test {
  protected:
    void SetUp() override {
        sample::ClassRecord classRecord;
        classRecord.classId = 1;
        classRecord.classCode = "A";
        classRecord.params.resize(128);
        classRecord.securities.resize(1);
        classRecord.securities[0].sec_id = 2;
        const std::string classes =
            m_folder.write("class.vd", sample::encodeClassFile({classRecord}));

        sample::DataFile file;
        file.header.maxSecs = 4;
        file.header.dataPageSize = 2 * 1080;
        file.header.eventPageSize = 200;
        std::vector<sample::Record> all(6);
        for (sample::Record& record : all) {
            record.dataField1 = static_cast<std::int32_t>(&record - all.data()) + 1;
            record.class_id = 1;
            record.sec_id = 2;
        }
        file.eventPages = sample::packRecords(all, file.header.eventPageSize);
        file.slots[2].class_id = 1;
        file.slots[2].setLong(5, 55);
        m_bytes = sample::encodeDataFile(file);
        m_data = m_folder.write("data.vd", m_bytes);

        ASSERT_EQ(init_vdreader_classes_file(classes.c_str()), 1);
        for_each_security([](sClassParUnitedDesc*, sSecurityDesc* security) -> std::int32_t {
            found = security;
            return 0;
        });
        ASSERT_NE(found, nullptr);
    }

    bool init() { return init_vdreader_dyn_params_file(m_data.c_str()) == 1; }

    // Records of a walk, or the text that it raises.
    static std::string walk() {
        records = 0;
        const std::string raised = raisedText([] {
            for_each_dynamic_params([](sDynParams*) -> std::int32_t {
                ++records;
                return 1;
            });
        });
        return raised == "(nothing)" ? std::to_string(records) : raised;
    }

    static bool lastIsRight() {
        sLastDynParams out = {};
        return get_sSecurityDesc_last_dynamic_params(found, &out) == 1 && out.longs[5] == 55;
    }

    // Initialises with the call failing, then without; whether the call was reached.
    bool failsAt(StorageLedger::Call call, int number, bool always) {
        SCOPED_TRACE(std::string(StorageLedger::kNames.at(call)) +
                     (always ? " from " : " once at ") + std::to_string(number));
        const int before = StorageLedger::count(call);
        StorageLedger::fail(call, number, always);
        testing::internal::CaptureStderr();
        if (!init()) {
            EXPECT_STRNE(get_vdreader_error(), "Unknown error");
            EXPECT_FALSE(readerState().dynParamsReady);
            EXPECT_EQ(for_each_dynamic_params(nullptr), 0);
            EXPECT_STREQ(get_vdreader_error(), "dynamic parameters storage is not initialized");
        }
        testing::internal::GetCapturedStderr();
        const bool reached = StorageLedger::count(call) - before >= number;
        StorageLedger::failNothing();
        if (call == StorageLedger::size || call == StorageLedger::open) {
            // A file whose size cannot be told counts as empty and is laid out.
            readerState().curData.reset();
            m_folder.write("data.vd", m_bytes);
        }
        EXPECT_TRUE(init()) << get_vdreader_error();
        EXPECT_EQ(walk(), "6");
        EXPECT_TRUE(lastIsRight());
        return reached;
    }

    TempFolder m_folder;
    std::string m_data;
    std::string m_bytes; // of the good file
    CapturedLog m_log;
};

struct Open {
    std::size_t files = StorageLedger::openFiles();
    std::size_t mappings = StorageLedger::openMappings();
    std::size_t views = StorageLedger::openViews();

    bool operator==(const Open&) const = default;
};

} // namespace

TEST_F(DynParamsFaults, EachCallOfALoadFailsOnceThenAlways) {
    const StorageLedger ledger;
    ASSERT_TRUE(init());
    ASSERT_EQ(walk(), "6");
    const Open good;
    // Handles and views that could not be given back stay; all other failures leave nothing.
    for (const auto call : {StorageLedger::open, StorageLedger::size, StorageLedger::map,
                            StorageLedger::view, StorageLedger::read, StorageLedger::seek})
        for (const bool always : {false, true})
            for (int number = 1; failsAt(call, number, always); ++number)
                ASSERT_EQ(Open(), good) << number;
    for (const auto call : {StorageLedger::close, StorageLedger::closeMap, StorageLedger::unview})
        for (const bool always : {false, true})
            for (int number = 1; failsAt(call, number, always); ++number)
                ASSERT_LT(number, 50);
    readerState().curData.reset();
    StorageLedger::giveBack();
}

TEST_F(DynParamsFaults, FailureInTheFirstStepsKeepsTheOldDataAndStopsTheReader) {
    ASSERT_TRUE(init());
    const TCurrentData* const old = readerState().curData.get();
    const std::string none = m_folder.name("none.vd");
    const std::string missing = m_folder.write("missing.ini", "[s]\ndynparams=" + none + "\n");
    const std::vector<std::function<std::int32_t()>> failures = {
        [] { return init_vdreader_dyn_params_file(nullptr); },
        [] { return init_vdreader_dyn_params_file(""); },
        [&] { return init_vdreader_dyn_params_file(none.c_str()); },
        [&] { // an ini file that cannot be read
            const ScopedCalls scope;
            platform::calls.readAt = [](platform::FileHandle, std::uint64_t, void*, std::size_t) {
                return std::ptrdiff_t{-1};
            };
            return init_vdreader_dyn_params(missing.c_str(), "s");
        },
        [&] { return init_vdreader_dyn_params(missing.c_str(), "s"); },
    };
    std::set<std::string> texts;
    for (const auto& fails : failures) {
        readerState().dynParamsReady = true;
        EXPECT_EQ(fails(), 0);
        EXPECT_FALSE(readerState().dynParamsReady) << get_vdreader_error();
        EXPECT_EQ(readerState().curData.get(), old);
        EXPECT_EQ(old->GetMaxSecs(), 4);
        texts.insert(get_vdreader_error());
    }
    EXPECT_EQ(texts, (std::set<std::string>{"provided dynparams file name is empty",
                                            "alerts file " + none + " can not be opened",
                                            "Read ini file error. File" + missing + " line:1"}));
    EXPECT_FALSE(std::filesystem::exists(none));
}

TEST_F(DynParamsFaults, FailedLoadLeavesTheNewDataNotReady) {
    ASSERT_TRUE(init());
    const TCurrentData* const old = readerState().curData.get();
    const std::string foreign = m_folder.write("foreign.vd", std::string(1000, 'f'));
    EXPECT_EQ(init_vdreader_dyn_params_file(foreign.c_str()), 0);
    EXPECT_STREQ(get_vdreader_error(), "File type is incorrect");
    EXPECT_FALSE(readerState().dynParamsReady);
    ASSERT_NE(readerState().curData, nullptr);
    EXPECT_NE(readerState().curData.get(), old);
    EXPECT_EQ(m_folder.read("data.vd").substr(24 + 96, 4), "\xDD\xDF\xFD\xDD") << "let go";
}

TEST_F(DynParamsFaults, ReadThatFailsInAWalkEndsOrRaisesAndTheNextWalkIsWhole) {
    const StorageLedger ledger;
    ASSERT_TRUE(init());
    for (const auto call : {StorageLedger::read, StorageLedger::seek, StorageLedger::size}) {
        for (int number = 1; number < 50; ++number) {
            SCOPED_TRACE(number);
            const int before = StorageLedger::count(call);
            StorageLedger::fail(call, number, false);
            walk();
            const bool reached = StorageLedger::count(call) - before >= number;
            StorageLedger::failNothing();
            EXPECT_EQ(walk(), "6");
            if (!reached)
                break;
        }
    }
}

TEST_F(DynParamsFaults, EachWalkLeavesAnIteratorBehind) {
    ASSERT_TRUE(init());
    ASSERT_EQ(walk(), "6"); // also makes the thread's line buffer
    const std::uint32_t mallocs = memCountMalloc;
    const std::uint32_t frees = memCountFree;
    ASSERT_EQ(walk(), "6");
    const std::uint32_t kept = (memCountMalloc - mallocs) - (memCountFree - frees);
    EXPECT_GE(kept, 2u); // the iterator and its page at least
    ASSERT_EQ(walk(), "6");
    EXPECT_EQ((memCountMalloc - mallocs) - (memCountFree - frees), 2 * kept);
}

TEST_F(DynParamsFaults, LatestValuesNeedNoMemoryAndNoCall) {
    const StorageLedger ledger;
    ASSERT_TRUE(init());
    int before = 0;
    for (int kind = 0; kind < StorageLedger::kCalls; ++kind)
        before += StorageLedger::count(static_cast<StorageLedger::Call>(kind));
    {
        const FailingMalloc failing;
        sLastDynParams out = {};
        const std::size_t news = countedNews();
        EXPECT_EQ(get_sSecurityDesc_last_dynamic_params(found, &out), 1);
        EXPECT_EQ(countedNews(), news);
        EXPECT_EQ(out.longs[5], 55);
    }
    int after = 0;
    for (int kind = 0; kind < StorageLedger::kCalls; ++kind)
        after += StorageLedger::count(static_cast<StorageLedger::Call>(kind));
    EXPECT_EQ(after, before);
}

TEST_F(DynParamsFaults, NullBufferGivesZeroWhereTheBrokenContractReturns) {
    ASSERT_TRUE(init());
    const ScopedCalls scope;
    static int broken;
    broken = 0;
    platform::calls.invalidParameter = [] { ++broken; };
    const std::string before = get_vdreader_error();
    EXPECT_EQ(get_sSecurityDesc_last_dynamic_params(found, nullptr), 0);
    EXPECT_EQ(broken, 1);
    EXPECT_EQ(get_vdreader_error(), before) << "nothing failed";
    EXPECT_TRUE(lastIsRight());
}
