// The virtual operations of TCurrentData by their places, which other modules are compiled against.

#include "curDataFixture.h"
#include "support/raised.h"
#include "support/slot.h"
#include "vdreader/errors.hpp"

namespace {

// Where the operations of TCurrentData itself stand; "" for what is not an operation of its own
// but an illegal call, whose text follows.
struct Operation {
    const char* own;
    const char* text;
};

constexpr Operation kOperations[] = {
    {"", "ILLEGAL CALL 2"},    {"", "ILLEGAL CALL 1"},  {"Close", ""},
    {"", "ILLEGAL CALL 4"},    {"", "ILLEGAL CALL 3"},  {"LoadData", ""},
    {"ResetData", ""},         {"GetData4Reading", ""}, {"", "ILLEGAL CALL Seq"},
    {"", "ILLEGAL CALL Seq1"}, {"", "ILLEGAL CALL 8"},  {"", "ILLEGAL CALL 9"},
    {"", "ILLEGAL CALL 10"},   {"", "ILLEGAL CALL 11"}, {"", "ILLEGAL CALL 12"},
    {"", "ILLEGAL CALL 21"},   {"", "ILLEGAL CALL 22"}, {"", "ILLEGAL CALL 23"},
    {"", "ILLEGAL CALL 24"},   {"", "ILLEGAL CALL 14"}, {"", "ILLEGAL CALL 15"},
    {"", "ILLEGAL CALL 15"},   {"", "ILLEGAL CALL 16"}, {"", "ILLEGAL CALL 17"},
    {"", "ILLEGAL CALL 18"},   {"", "ILLEGAL CALL 25"}, {"GetElements", ""},
    {"", "ILLEGAL CALL 21"},   {"", "ILLEGAL CALL 22"}, {"", "ILLEGAL CALL 23"},
    {"", "ILLEGAL CALL 24"},
};
constexpr int kCount = static_cast<int>(std::size(kOperations));

// The operation in a place of the table, with the arguments of the widest one; on both targets
// those that it does not take do no harm.
void* callAt(TAbstractStorage& storage, int place, void* first = nullptr, void* second = nullptr) {
    using Any = void* (*)(void*, void*, void*, void*);
    return (*reinterpret_cast<Any* const*>(&storage))[place](&storage, first, second, nullptr);
}

} // namespace

TEST(CurDataOperations, EveryPlaceHasItsText) {
    ASSERT_EQ(kCount, 31);
    TCurrentData data;
    for (int place = 0; place < kCount; ++place) {
        if (*kOperations[place].own != '\0')
            continue;
        const auto failure = raised<CError>([&] { callAt(data, place); });
        ASSERT_TRUE(failure) << place;
        EXPECT_STREQ(failure->what(), kOperations[place].text) << place;
        EXPECT_STREQ(failure->file, "Common/include/AbstractStorage") << place;
        EXPECT_EQ(failure->code, 0);
    }
}

TEST(CurDataOperations, TagsAreOutOfSequenceAndRepeat) {
    TCurrentData data;
    EXPECT_EQ(raisedText([&] { callAt(data, 0); }), "ILLEGAL CALL 2");
    EXPECT_EQ(raisedText([&] { callAt(data, 1); }), "ILLEGAL CALL 1");
    EXPECT_EQ(raisedText([&] { callAt(data, 20); }), raisedText([&] { callAt(data, 21); }));
    EXPECT_EQ(raisedText([&] { callAt(data, 15); }), raisedText([&] { callAt(data, 27); }));
}

TEST(CurDataOperations, OwnOperationsStandInTheirPlaces) {
    sample::DataFile parts = smallFile();
    parts.header.elements = 3;
    parts.slots[0] = {.class_id = 5};
    const CurDataFile file(parts);
    TCurrentData data;
    EXPECT_EQ(raisedText([&] { callAt(data, 5); }), "Can't load data from file ''");
    EXPECT_EQ(raisedText([&] { callAt(data, 6); }), "Can't reset data for file ''");
    data.Init(file.path.c_str(), false);
    callAt(data, 5);
    EXPECT_EQ(data.GetMaxSecs(), 8);
    char out[1072];
    EXPECT_EQ(callAt(data, 7, nullptr, out), out);
    EXPECT_EQ(out[20], 5);
    std::int32_t elements = 0;
    callAt(data, 26, &elements);
    EXPECT_EQ(elements, 3);
    callAt(data, 2);
    EXPECT_EQ(data.GetMaxSecs(), 0);
    EXPECT_EQ(file.closeStamp(), 0xDDFDDFDDu);
}

TEST(CurDataOperations, DestructorStandsLast) {
    const CurDataFile file(smallFile());
    TCurrentData* const data = loaded(file).release();
    EXPECT_EQ(file.closeStamp(), 0u);
    // The second of its two entries frees the object too.
    callAt(*data, kCount + 1);
    EXPECT_EQ(file.closeStamp(), 0xDDFDDFDDu);
}

TEST(CurDataOperations, PlacesOfTheNamedOnes) {
    EXPECT_EQ(slotOf(&TAbstractStorage::Close), 2);
    EXPECT_EQ(slotOf(&TAbstractStorage::LoadData), 5);
    EXPECT_EQ(slotOf(&TAbstractStorage::ResetData), 6);
    EXPECT_EQ(slotOf(&TAbstractStorage::GetData4Reading), 7);
    EXPECT_EQ(slotOf(&TAbstractStorage::GetElements), 26);
}
