#include "dwdata/ClassStorage.h"

#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>

#include "../../dwdata/src/descriptorCodec.h"
#include "sample/bytes.h"
#include "sample/classFile.h"
#include "support/raised.h"
#include "support/scopedCalls.h"
#include "support/tempFolder.h"

namespace {

sample::ClassRecord classOf(const std::string& code, std::size_t securities, std::size_t params) {
    sample::ClassRecord record;
    record.classId = 7;
    record.classCode = code;
    for (std::size_t i = 0; i < securities; ++i) {
        sample::Security security;
        security.sec_id = static_cast<std::uint32_t>(100 + i);
        security.sec_code = "S" + std::to_string(i);
        security.names = {{1, "short", "a long name of a security"}};
        record.securities.push_back(security);
    }
    for (std::size_t i = 0; i < params; ++i) {
        sample::Param param;
        param.par_id = static_cast<std::uint16_t>(i);
        param.db_name = "P" + std::to_string(i);
        param.names = {{1, "s", "l", "e"}};
        record.params.push_back(param);
    }
    return record;
}

class ClassStorageTest : public testing::Test {
  protected:
    // The text that opening a file of these bytes raises.
    std::string failureOf(const std::string& bytes) {
        m_folder.write("other.vd", bytes);
        return raisedText([&] { const ClassStorage storage(m_name.c_str()); });
    }

    ClassStorage open(const std::string& bytes) {
        m_folder.write("other.vd", bytes);
        return ClassStorage(m_name.c_str());
    }

    TempFolder m_folder;
    const std::string m_name = m_folder.name("other.vd");
};

// All that a pass finds.
struct Pass {
    std::vector<STORE_CLASS_DESC> used;
    std::vector<SecurityVector> securities;
    std::vector<ParamVector> params;
};

Pass readAll(ClassStorage storage) {
    Pass pass;
    while (storage.nextIndex < storage.classCount) {
        STORE_CLASS_DESC record;
        if (!storage.nextRecord(record))
            continue;
        pass.used.push_back(record);
        storage.readSecurities(record, pass.securities.emplace_back());
        storage.readParams(record, pass.params.emplace_back());
        storage.seekRecord(storage.nextIndex);
    }
    return pass;
}

} // namespace

// ---- opening ----

TEST_F(ClassStorageTest, MissingFileIsNotOpenedAndToldOnStandardError) {
    const std::string name = m_folder.name("none.vd");
    testing::internal::CaptureStderr();
    const ClassStorage storage(name.c_str());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Failed to open " + name + "\n");
    EXPECT_FALSE(storage.opened);
    EXPECT_EQ(storage.classCount, 0u);
    EXPECT_EQ(storage.version, 0u);
    EXPECT_EQ(storage.recordsStart, 0u);
}

TEST_F(ClassStorageTest, FileWithoutRecordsIsGood) {
    ClassStorage storage = open(sample::encodeClassHead(0));
    EXPECT_TRUE(storage.opened);
    EXPECT_EQ(storage.version, 15u);
    EXPECT_EQ(storage.classCount, 0u);
    EXPECT_EQ(storage.nextIndex, 0u);
    EXPECT_EQ(storage.recordsStart, 145u);
    STORE_CLASS_DESC record;
    EXPECT_FALSE(storage.nextRecord(record));
    EXPECT_EQ(storage.nextIndex, 0u);
}

TEST_F(ClassStorageTest, FileShorterThanTheHeadIsInvalid) {
    const std::string head = sample::encodeClassHead(0);
    for (std::size_t size = 0; size < 13; ++size)
        EXPECT_EQ(failureOf(head.substr(0, size)), "vd-file '" + m_name + "' has invalid format");
}

TEST_F(ClassStorageTest, OtherHeadIsInvalid) {
    for (std::size_t i = 0; i < 8; ++i) {
        std::string bytes = sample::encodeClassHead(0);
        bytes[i] = static_cast<char>(bytes[i] ^ 1);
        EXPECT_EQ(failureOf(bytes), "vd-file '" + m_name + "' has invalid head") << i;
    }
}

TEST_F(ClassStorageTest, LastFiveBytesOfTheHeadAreFree) {
    std::string bytes = sample::encodeClassHead(0);
    for (const char c : {'\0', 'x', '\xFF'}) {
        std::memset(bytes.data() + 8, c, 5);
        EXPECT_EQ(failureOf(bytes), "(nothing)");
    }
}

TEST_F(ClassStorageTest, FileThatEndsInsideTheVersionIsInvalid) {
    for (std::size_t size = 13; size < 17; ++size)
        EXPECT_EQ(failureOf(sample::encodeClassHead(0).substr(0, size)),
                  "'" + m_name + "' has invalid format");
}

TEST_F(ClassStorageTest, OtherVersionsAreTold) {
    const auto ofVersion = [&](std::uint32_t version) {
        std::string bytes = sample::encodeClassHead(0);
        sample::putNumber(bytes, sample::kVersionOffset, version);
        return failureOf(bytes);
    };
    EXPECT_EQ(ofVersion(14), "'" + m_name + "' has invalid format version 0xe");
    EXPECT_EQ(ofVersion(16), "'" + m_name + "' has invalid format version 0x10");
    EXPECT_EQ(ofVersion(0), "'" + m_name + "' has invalid format version 0");
    EXPECT_EQ(ofVersion(0xFFFFFFFF), "'" + m_name + "' has invalid format version 0xffffffff");
    EXPECT_EQ(ofVersion(0x0F00000F), "'" + m_name + "' has invalid format version 0xf00000f");
}

TEST_F(ClassStorageTest, ShortInfoBlockNamesTheDefaultFile) {
    for (const std::size_t size : {17, 18, 21, 100, 144})
        EXPECT_EQ(failureOf(sample::encodeClassHead(0).substr(0, size)),
                  "class.vd has invalid format");
}

// ---- records ----

TEST_F(ClassStorageTest, RecordsAreHandedOutWhole) {
    sample::ClassRecord record = classOf("CODE", 0, 0);
    record.classId = -3;
    record.fh = "first high";
    record.fl = std::string(256, 'l');
    record.ch = "";
    record.cl = "last";
    const std::string bytes = sample::encodeClassFile({record});
    ClassStorage storage = open(bytes);
    STORE_CLASS_DESC desc;
    ASSERT_TRUE(storage.nextRecord(desc));
    EXPECT_EQ(storage.nextIndex, 1u);
    EXPECT_EQ(desc.magic, 8261);
    EXPECT_EQ(desc.classId, -3);
    EXPECT_STREQ(desc.classCode, "CODE");
    EXPECT_STREQ(desc.fh, "first high");
    EXPECT_EQ(std::string(desc.fl), std::string(256, 'l'));
    EXPECT_STREQ(desc.ch, "");
    EXPECT_STREQ(desc.cl, "last");
    EXPECT_EQ(bytes.substr(145, sizeof desc),
              std::string(reinterpret_cast<const char*>(&desc), sizeof desc))
        << "the writer's own bytes are carried along";
}

TEST_F(ClassStorageTest, FreeSlotsUseUpAnIndex) {
    sample::ClassRecord slot;
    slot.magic = 0;
    const Pass pass = readAll(
        open(sample::encodeClassFile({classOf("A", 1, 0), slot, classOf("B", 2, 1), slot})));
    ASSERT_EQ(pass.used.size(), 2u);
    EXPECT_STREQ(pass.used[0].classCode, "A");
    EXPECT_STREQ(pass.used[1].classCode, "B");
    EXPECT_EQ(pass.securities[1].size(), 2u);
    EXPECT_EQ(pass.params[1].size(), 1u);
}

TEST_F(ClassStorageTest, OtherMagicIsToldWithItsIndex) {
    for (const int magic : {8260, 8262, 1, 0xFFFF, 0x4520}) {
        sample::ClassRecord bad;
        bad.magic = static_cast<std::uint16_t>(magic);
        const std::string bytes = sample::encodeClassFile({classOf("A", 1, 1), bad});
        EXPECT_EQ(raisedText([&] { readAll(open(bytes)); }),
                  "STORE_CLASS_DESC has an invalid record magic (index=1)");
    }
}

TEST_F(ClassStorageTest, FirstMissingRecordIsToldWithItsIndex) {
    sample::ClassRecord first = classOf("A", 0, 0);
    std::string bytes = sample::encodeClassFile({first, first});
    sample::putNumber<std::uint32_t>(bytes, sample::kClassCountOffset, 5);
    EXPECT_EQ(raisedText([&] { readAll(open(bytes)); }),
              "STORE_CLASS_DESC has an invalid record format (index=2)");
    bytes.resize(bytes.size() - 1);
    EXPECT_EQ(raisedText([&] { readAll(open(bytes)); }),
              "STORE_CLASS_DESC has an invalid record format (index=1)");
}

TEST_F(ClassStorageTest, SeekStandsOnTheRecord) {
    ClassStorage storage =
        open(sample::encodeClassFile({classOf("A", 0, 0), classOf("B", 0, 0), classOf("C", 0, 0)}));
    STORE_CLASS_DESC record;
    storage.seekRecord(2);
    EXPECT_EQ(storage.nextIndex, 2u);
    ASSERT_TRUE(storage.nextRecord(record));
    EXPECT_STREQ(record.classCode, "C");
    EXPECT_FALSE(storage.nextRecord(record));
    storage.seekRecord(0);
    ASSERT_TRUE(storage.nextRecord(record));
    EXPECT_STREQ(record.classCode, "A");
}

// ---- blocks ----

TEST_F(ClassStorageTest, NoCountOrNoOffsetIsNoBlock) {
    sample::ClassRecord none = classOf("A", 2, 2);
    none.storedSecuritiesCount = 0;
    none.storedParamsOffset = sample::kNoBlock;
    ClassStorage storage = open(sample::encodeClassFile({none, classOf("B", 0, 0)}));
    STORE_CLASS_DESC record;
    ASSERT_TRUE(storage.nextRecord(record));
    SecurityVector securities(1);
    securities[0].sec_id = 42;
    ParamVector params(3);
    storage.readSecurities(record, securities);
    storage.readParams(record, params);
    ASSERT_EQ(securities.size(), 1u) << "the vector is left alone";
    EXPECT_EQ(securities[0].sec_id, 42u);
    EXPECT_EQ(params.size(), 3u);
    ASSERT_TRUE(storage.nextRecord(record)) << "and the stream is not moved";
    EXPECT_STREQ(record.classCode, "B");
}

TEST_F(ClassStorageTest, VectorsAreReplaced) {
    ClassStorage storage = open(sample::encodeClassFile({classOf("A", 2, 1)}));
    STORE_CLASS_DESC record;
    ASSERT_TRUE(storage.nextRecord(record));
    SecurityVector securities(5);
    securities[0].names.resize(3);
    ParamVector params(5);
    storage.readSecurities(record, securities);
    storage.readParams(record, params);
    ASSERT_EQ(securities.size(), 2u);
    EXPECT_EQ(securities[0].sec_id, 100u);
    EXPECT_EQ(securities[0].names.size(), 1u);
    ASSERT_EQ(params.size(), 1u);
    EXPECT_STREQ(params[0].db_name, "P0");
}

TEST_F(ClassStorageTest, StoredBlockSizeDoesNotCount) {
    sample::ClassRecord record = classOf("A", 3, 2);
    record.storedSecuritiesSize = 0;
    record.storedParamsSize = 0xFFFFFFFF;
    const Pass pass = readAll(open(sample::encodeClassFile({record})));
    ASSERT_EQ(pass.securities[0].size(), 3u);
    EXPECT_STREQ(pass.securities[0][2].sec_code, "S2");
    EXPECT_EQ(pass.params[0].size(), 2u);
}

TEST_F(ClassStorageTest, BlockBehindTheEndIsInvalid) {
    for (const std::uint32_t offset : {1000000u, 0xFFFFFFFEu}) {
        sample::ClassRecord record = classOf("A", 1, 1);
        record.storedSecuritiesOffset = offset;
        EXPECT_EQ(raisedText([&] { readAll(open(sample::encodeClassFile({record}))); }),
                  "securitiesSize has invalid record format");
        record.storedSecuritiesOffset.reset();
        record.storedParamsOffset = offset;
        EXPECT_EQ(raisedText([&] { readAll(open(sample::encodeClassFile({record}))); }),
                  "paramsSize has invalid record format");
    }
}

TEST_F(ClassStorageTest, ImpossibleCountsAreTooLong) {
    sample::ClassRecord record = classOf("A", 1, 1);
    for (const std::int32_t count : {-1, INT32_MIN, INT32_MAX, 2000000}) {
        record.storedSecuritiesCount = count;
        EXPECT_EQ(raisedText([&] { readAll(open(sample::encodeClassFile({record}))); }),
                  "vector too long")
            << count;
    }
    record.storedSecuritiesCount.reset();
    for (const std::int32_t count : {-1, INT32_MIN, INT32_MAX, 20000000}) {
        record.storedParamsCount = count;
        EXPECT_EQ(raisedText([&] { readAll(open(sample::encodeClassFile({record}))); }),
                  "vector too long")
            << count;
    }
}

TEST_F(ClassStorageTest, BlockThatEndsEarlyKeepsItsCountAndFailsTheNextRecord) {
    sample::ClassRecord record = classOf("A", 2, 1);
    record.storedSecuritiesCount = 1000;
    record.storedParamsOffset = sample::kNoBlock;
    sample::ClassFileLayout layout;
    std::string bytes = sample::encodeClassFile({record}, &layout);
    bytes.resize(layout.classes[0].paramsBlock);
    const Pass pass = readAll(open(bytes));
    ASSERT_EQ(pass.securities[0].size(), 1000u);
    EXPECT_EQ(pass.securities[0][1].sec_id, 101u);
    for (std::size_t i = 2; i < 1000; ++i) {
        EXPECT_EQ(pass.securities[0][i].sec_id, 0u);
        EXPECT_EQ(pass.securities[0][i].lot_size, 1u);
    }
    EXPECT_EQ(raisedText([&] {
                  std::string two = sample::encodeClassFile({record, classOf("B", 0, 0)}, &layout);
                  two.resize(layout.classes[0].paramsBlock);
                  readAll(open(two));
              }),
              "STORE_CLASS_DESC has an invalid record format (index=1)");
}

TEST_F(ClassStorageTest, BlockThatEndsEarlyFailsTheNextBlockOfItsRecord) {
    // The parameters stand whole in front of the securities that are cut short.
    sample::ClassFileLayout layout;
    const std::string params = sample::encodeClassFile({classOf("A", 0, 1)}, &layout);
    sample::ClassRecord record = classOf("A", 0, 0);
    record.storedParamsCount = 1;
    record.storedParamsOffset = static_cast<std::uint32_t>(layout.classes[0].paramsBlock);
    record.storedSecuritiesCount = 1;
    record.storedSecuritiesOffset = static_cast<std::uint32_t>(params.size());
    const std::string bytes = sample::encodeClassFile({record}) +
                              params.substr(layout.classes[0].paramsBlock) + std::string(40, 's');
    EXPECT_EQ(raisedText([&] { readAll(open(bytes)); }), "paramsSize has invalid record format");
    record.storedParamsCount = 0;
    const Pass pass =
        readAll(open(sample::encodeClassFile({record}) +
                     params.substr(layout.classes[0].paramsBlock) + std::string(40, 's')));
    EXPECT_EQ(pass.securities.at(0).size(), 1u);
}

TEST_F(ClassStorageTest, VectorsOfExactlyTheLimitArePossible) {
    constexpr std::uint64_t kMost = std::uint64_t{1} << 30;
    codec::checkVectorSize(kMost / 64, 64);
    codec::checkVectorSize(0, 64);
    EXPECT_THROW(codec::checkVectorSize(kMost / 64 + 1, 64), std::length_error);
    codec::checkVectorSize(kMost / 72, 72);
    EXPECT_THROW(codec::checkVectorSize(kMost / 72 + 1, 72), std::length_error);
}

TEST_F(ClassStorageTest, PlacesBeyondTwoAndFourGigabytesAreReached) {
    static std::string whole;
    static const platform::Calls* real;
    static std::vector<std::uint64_t> reads;
    const ScopedCalls scope;
    real = &scope.saved();
    sample::ClassRecord record = classOf("A", 0, 0);
    record.storedSecuritiesCount = 1;
    record.storedSecuritiesOffset = 3000000000;
    record.storedParamsCount = 1;
    record.storedParamsOffset = 0xFFFFFF00;
    whole = sample::encodeClassFile({record});
    sample::putNumber<std::uint32_t>(whole, sample::kClassCountOffset, 3000000);
    reads.clear();
    platform::calls.readAt = [](platform::FileHandle file, std::uint64_t offset, void* out,
                                std::size_t size) {
        reads.push_back(offset);
        if (offset < 3000000000)
            return real->readAt(file, offset, out, size);
        std::memset(out, 0, size);
        return static_cast<std::ptrdiff_t>(size);
    };
    ClassStorage storage = open(whole);
    STORE_CLASS_DESC desc;
    ASSERT_TRUE(storage.nextRecord(desc));
    SecurityVector securities;
    ParamVector params;
    storage.readSecurities(desc, securities);
    EXPECT_EQ(securities.size(), 1u);
    EXPECT_EQ(reads.back(), 3000000000u);
    storage.readParams(desc, params);
    EXPECT_EQ(params.size(), 1u);
    EXPECT_EQ(reads.back(), 0xFFFFFF00u);
    storage.seekRecord(2000000);
    EXPECT_FALSE(storage.nextRecord(desc)) << "zeroes are a free slot";
    EXPECT_EQ(reads.back(), 145 + std::uint64_t{2000000} * 3464);
    EXPECT_EQ(storage.nextIndex, 2000001u);
}

TEST_F(ClassStorageTest, ParameterWithoutItsBytesHasAnEmptyName) {
    sample::ClassRecord record = classOf("A", 0, 1);
    record.storedParamsCount = 3;
    const Pass pass = readAll(open(sample::encodeClassFile({record})));
    ASSERT_EQ(pass.params[0].size(), 3u);
    EXPECT_STREQ(pass.params[0][0].db_name, "P0");
    for (std::size_t i = 1; i < 3; ++i)
        for (const char c : pass.params[0][i].db_name)
            EXPECT_EQ(c, 0);
}
