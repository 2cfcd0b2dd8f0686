// The copy of a slot's values, against a loop that decides for each parameter.

#include "CurData/lastValues.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>

namespace {

// The values of a slot as they stand in the file: of any alignment.
struct Slot {
    char bytes[3 + 128 * 8];

    const char* values() const { return bytes + 3; }
};

bool has(const ParamSet& set, unsigned i) {
    return (set.words[i / 64] >> (i % 64) & 1) != 0;
}

// One more than the buffer on both sides, to see that nothing else is written.
struct Guarded {
    char front[64];
    sLastDynParams params;
    char back[64];
};

// A class of so many parameters, those in `doubles` doubles.
ValueForm formOf(const ParamSet& doubles, unsigned limit) {
    ValueForm form;
    form.limit = limit;
    for (unsigned i = 0; i < limit; ++i)
        (has(doubles, i) ? form.doubles : form.longs).words[i / 64] |= std::uint64_t{1} << (i % 64);
    return form;
}

void expectLikeTheLoop(const Slot& slot, ParamSet set, ParamSet doubles, unsigned limit) {
    Guarded expected;
    std::memset(&expected, 0x5A, sizeof expected);
    Guarded copied = expected;
    for (unsigned i = 0; i < limit; ++i) {
        if (!has(set, i))
            continue;
        if (has(doubles, i))
            std::memcpy(reinterpret_cast<char*>(&expected.params) + 528 + i * 8,
                        slot.values() + i * 8, 8);
        else
            std::memcpy(reinterpret_cast<char*>(&expected.params) + 16 + i * 4,
                        slot.values() + i * 8, 4);
    }
    const ValueForm form = formOf(doubles, limit);
    const Guarded untouched = copied;
    copyLastValues(slot.values(), set, form, copied.params);
    EXPECT_EQ(std::memcmp(&copied, &expected, sizeof copied), 0) << "limit " << limit;

    // The other processors' copies as well.
    for (const ValuesCopy copy : usableCopies()) {
        copied = untouched;
        copy(slot.values(), set, form, copied.params);
        EXPECT_EQ(std::memcmp(&copied, &expected, sizeof copied), 0) << "limit " << limit;
    }
}

} // namespace

TEST(LastValues, CopyIsThatOfALoopForEverySet) {
    std::mt19937_64 random(7);
    Slot slot;
    for (char& byte : slot.bytes)
        byte = static_cast<char>(random());
    for (unsigned limit = 0; limit <= 128; ++limit) {
        expectLikeTheLoop(slot, {~0ULL, ~0ULL}, {~0ULL, ~0ULL}, limit);
        expectLikeTheLoop(slot, {~0ULL, ~0ULL}, {0, 0}, limit);
        expectLikeTheLoop(slot, {0, 0}, {~0ULL, ~0ULL}, limit);
        for (int i = 0; i < 20; ++i)
            expectLikeTheLoop(slot, {random(), random()}, {random(), random()}, limit);
        expectLikeTheLoop(slot, {random() & random() & random(), 1ULL << (limit % 64)},
                          {random(), random()}, limit);
    }
}

TEST(LastValues, EachParameterAlone) {
    Slot slot;
    for (std::size_t i = 0; i < sizeof slot.bytes; ++i)
        slot.bytes[i] = static_cast<char>(i * 7 + 1);
    for (unsigned i = 0; i < 128; ++i) {
        ParamSet one = {};
        one.words[i / 64] = std::uint64_t{1} << (i % 64);
        expectLikeTheLoop(slot, one, one, 128);
        expectLikeTheLoop(slot, one, {}, 128);
        expectLikeTheLoop(slot, one, one, i);
    }
}
