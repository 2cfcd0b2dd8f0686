#include "logs/SysLogRecord.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "support/countedNew.h"

namespace {

using Record = std::unique_ptr<SysLogRecord, SysLogRecordFree>;

Record emptyRecord() {
    return Record(newSysLogRecord(2, 1));
}

bool isZero(const void* memory, std::size_t size) {
    const auto* bytes = static_cast<const char*>(memory);
    return std::all_of(bytes, bytes + size, [](char byte) { return byte == 0; });
}

std::string textOf(const SysLogParam& param) {
    return param.text();
}

// News that a call makes.
template <class Call>
std::size_t newsOf(Call call) {
    const std::size_t before = countedNews();
    call();
    return countedNews() - before;
}

} // namespace

TEST(SysLogRecord, LayoutIsThatOfTheFamily) {
    EXPECT_EQ(sizeof(SysLogRecord), 112u);
    EXPECT_EQ(offsetof(SysLogRecord, threadId), 0u);
    EXPECT_EQ(offsetof(SysLogRecord, date), 4u);
    EXPECT_EQ(offsetof(SysLogRecord, time), 8u);
    EXPECT_EQ(offsetof(SysLogRecord, inlineCount), 12u);
    EXPECT_EQ(offsetof(SysLogRecord, overflowCount), 14u);
    EXPECT_EQ(offsetof(SysLogRecord, id), 16u);
    EXPECT_EQ(offsetof(SysLogRecord, overflow), 24u);
    EXPECT_EQ(offsetof(SysLogRecord, inlineParams), 32u);
    EXPECT_EQ(sizeof(SysLogParam), 40u);
    EXPECT_EQ(offsetof(SysLogParam, value), 0u);
    EXPECT_EQ(offsetof(SysLogParam, type), 32u);
    EXPECT_EQ(sizeof(SysLogParam::type), 1u);
    EXPECT_EQ(sizeof(SysLogParamNode), 48u);
    EXPECT_EQ(offsetof(SysLogParamNode, next), 40u);
}

TEST(SysLogRecord, TypesHaveTheirNumbers) {
    EXPECT_EQ(static_cast<int>(SysLogParamType::character), 1);
    EXPECT_EQ(static_cast<int>(SysLogParamType::text), 2);
    EXPECT_EQ(static_cast<int>(SysLogParamType::real), 3);
    EXPECT_EQ(static_cast<int>(SysLogParamType::int32), 4);
    EXPECT_EQ(static_cast<int>(SysLogParamType::int16), 5);
    EXPECT_EQ(static_cast<int>(SysLogParamType::uint32), 6);
    EXPECT_EQ(static_cast<int>(SysLogParamType::uint16), 7);
    EXPECT_EQ(static_cast<int>(SysLogParamType::character2), 8);
    EXPECT_EQ(static_cast<int>(SysLogParamType::int64), 9);
    EXPECT_EQ(static_cast<int>(SysLogParamType::uint64), 10);
    EXPECT_EQ(static_cast<int>(SysLogParamType::boolean), 11);
}

TEST(SysLogRecord, NewOneIsZeroButForItsId) {
    const Record record = emptyRecord();
    EXPECT_EQ(record->id, 0x2000001u);
    EXPECT_EQ(record->level(), 2);
    record->id = 0;
    EXPECT_TRUE(isZero(record.get(), sizeof *record));
}

TEST(SysLogRecord, NumberOfAMessageHas24Bits) {
    const Record record(newSysLogRecord(0xFE, 0xAB123456));
    EXPECT_EQ(record->id, 0xFE123456u);
    EXPECT_EQ(record->level(), 0xFE);
}

TEST(SysLogRecord, NullTextAddsNothing) {
    const Record record = emptyRecord();
    addStringParam(*record, nullptr);
    EXPECT_EQ(record->inlineCount, 0);
    EXPECT_EQ(record->overflowCount, 0);
    EXPECT_TRUE(isZero(record->inlineParams, sizeof record->inlineParams));
}

TEST(SysLogRecord, TextOf31CharactersLiesInTheRecord) {
    const std::string text(31, 'a');
    const Record record = emptyRecord();
    EXPECT_EQ(newsOf([&] { addStringParam(*record, text.c_str()); }), 0u);
    const SysLogParam& param = record->inlineParams[0];
    EXPECT_EQ(record->inlineCount, 1);
    EXPECT_EQ(param.type, SysLogParamType::text);
    EXPECT_EQ(std::string(param.value, 32), text + '\0');
    EXPECT_EQ(param.text(), param.value);
    EXPECT_EQ(param.heapText(), nullptr);
}

TEST(SysLogRecord, TextOf32CharactersIsABlockWhoseAddressEndsTheValue) {
    const std::string text(32, 'b');
    const Record record = emptyRecord();
    EXPECT_LE(newsOf([&] { addStringParam(*record, text.c_str()); }), 1u);
    const SysLogParam& param = record->inlineParams[0];
    const char* block = nullptr;
    std::memcpy(&block, param.value + 24, sizeof block);
    ASSERT_NE(block, nullptr);
    EXPECT_TRUE(isZero(param.value + 16, 8));
    EXPECT_EQ(param.text(), block);
    EXPECT_EQ(block, text);
    EXPECT_NE(block, text.c_str());
}

TEST(SysLogRecord, TextsOfEveryLengthComeBack) {
    for (std::size_t length = 0; length <= 70; ++length) {
        std::string text(length, '\0');
        for (std::size_t i = 0; i < length; ++i)
            text[i] = static_cast<char>(0x80 + i);
        const Record record = emptyRecord();
        addStringParam(*record, text.c_str());
        EXPECT_EQ(textOf(record->inlineParams[0]), text) << length;
        EXPECT_EQ(record->inlineParams[0].heapText() != nullptr, length >= 32) << length;
    }
}

TEST(SysLogRecord, ThirdTextAndFurtherOnesGoOnTheListInOrder) {
    const Record record = emptyRecord();
    const std::string longText(100, 'c');
    const char* const texts[] = {"one", "two", "three", longText.c_str(), "five"};
    for (const char* text : texts)
        addStringParam(*record, text);
    EXPECT_EQ(record->inlineCount, 2);
    EXPECT_EQ(record->overflowCount, 3);
    EXPECT_EQ(textOf(record->inlineParams[0]), "one");
    EXPECT_EQ(textOf(record->inlineParams[1]), "two");
    const SysLogParamNode* node = record->overflow;
    for (int at = 2; at < 5; ++at, node = node->next) {
        ASSERT_NE(node, nullptr);
        EXPECT_EQ(node->param.type, SysLogParamType::text);
        EXPECT_EQ(textOf(node->param), texts[at]);
    }
    EXPECT_EQ(node, nullptr);
}

TEST(SysLogRecord, RecordOfALineTakesTwoAllocationsAtMost) {
    const std::string line(2000, 'd');
    Record record(nullptr);
    EXPECT_LE(newsOf([&] {
                  record = emptyRecord();
                  addStringParam(*record, line.c_str());
              }),
              2u);
    EXPECT_EQ(textOf(record->inlineParams[0]), line);
}

TEST(SysLogRecord, ParametersAreFoundByNumbersFrom1) {
    const Record record = emptyRecord();
    EXPECT_EQ(record->param(0), nullptr);
    EXPECT_EQ(record->param(1), nullptr);
    EXPECT_EQ(record->param(3), nullptr);
    for (const char* text : {"one", "two", "three", "four"})
        addStringParam(*record, text);
    EXPECT_EQ(record->param(0), nullptr);
    EXPECT_EQ(record->param(1), &record->inlineParams[0]);
    EXPECT_EQ(record->param(2), &record->inlineParams[1]);
    EXPECT_EQ(record->param(3), &record->overflow->param);
    EXPECT_EQ(record->param(4), &record->overflow->next->param);
    EXPECT_EQ(record->param(5), nullptr);
    EXPECT_EQ(record->param(0xFFFF), nullptr);
}

// Every allocation of a record with five long texts fails once; what is there stays as it was.
TEST(SysLogRecord, TextThatFindsNoMemoryLeavesTheRecordAsItWas) {
    const std::string text(50, 'e');
    int failures = 0;
    for (int count = 0; count < 5; ++count)
        for (int after = 0;; ++after) {
            const Record record = emptyRecord();
            for (int i = 0; i < count; ++i)
                addStringParam(*record, text.c_str());
            bool failed = false;
            {
                const FailingNew failing(after, 1);
                try {
                    addStringParam(*record, text.c_str());
                } catch (const std::bad_alloc&) {
                    failed = true;
                }
            }
            if (!failed)
                break;
            ++failures;
            EXPECT_EQ(record->inlineCount, std::min(count, 2));
            EXPECT_EQ(record->overflowCount, std::max(count - 2, 0));
            EXPECT_EQ(record->param(static_cast<std::uint16_t>(count + 1)), nullptr);
            addStringParam(*record, "next");
            EXPECT_EQ(textOf(*record->param(static_cast<std::uint16_t>(count + 1))), "next");
        }
    EXPECT_GT(failures, 0);
}

TEST(SysLogRecord, RecordThatFindsNoMemoryRaises) {
    const FailingNew failing(0, 1);
    EXPECT_THROW(newSysLogRecord(2, 1), std::bad_alloc);
}

TEST(SysLogRecord, NullIsReleased) {
    freeSysLogRecord(nullptr);
    const Record record(nullptr);
    EXPECT_EQ(record, nullptr);
}
