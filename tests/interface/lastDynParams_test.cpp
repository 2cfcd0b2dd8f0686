// The latest values of a security, through the shared library.

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "dynParamsFixture.h"

namespace {

class LastDynParams : public DynParamsFixture {};

} // namespace

TEST_F(LastDynParams, FlagsDecideWhereAValueGoes) {
    sample::DataFile file = smallFile();
    sample::Slot slot;
    slot.class_id = 1;
    slot.setLong(2, -22);
    slot.setDouble(3, 3.5);
    file.slots[7] = slot;
    load({classWithParams(1, "A", 7, 4, {3})}, file);
    ASSERT_EQ(last("A"), 1) << lastError();
    EXPECT_EQ(m_out.mask[0], 0x0C);
    EXPECT_EQ(+m_out.longs[2], -22);
    EXPECT_EQ(+m_out.doubles[3], 3.5);
    for (const std::size_t place : touched())
        EXPECT_TRUE((place >= 16 + 2 * 4 && place < 16 + 3 * 4) ||
                    (place >= 528 + 3 * 8 && place < 528 + 4 * 8))
            << place;
}

TEST_F(LastDynParams, OnlyTheMaskDecidesAndNotFilled) {
    sample::DataFile file = smallFile();
    sample::Slot slot;
    slot.class_id = 1;
    slot.filled = 0;
    slot.setLong(0, 5);
    file.slots[7] = slot;
    load({classWithParams(1, "A", 7, 1, {})}, file);
    ASSERT_EQ(last("A"), 1);
    EXPECT_EQ(+m_out.longs[0], 5);
}

TEST_F(LastDynParams, EmptyMaskChangesTheMaskAlone) {
    sample::DataFile file = smallFile();
    sample::Slot slot;
    slot.class_id = 1;
    slot.values.fill(0x1234);
    file.slots[7] = slot;
    load({classWithParams(1, "A", 7, 128, {})}, file);
    ASSERT_EQ(last("A"), 1);
    const unsigned char none[16] = {};
    EXPECT_EQ(std::memcmp(m_out.mask, none, 16), 0);
    EXPECT_TRUE(touched().empty());
}

TEST_F(LastDynParams, ParametersBehindTheClasssOwnAreLeftOut) {
    sample::DataFile file = smallFile();
    sample::Slot slot;
    slot.class_id = 1;
    slot.setLong(5, 55);
    file.slots[7] = slot;
    load({classWithParams(1, "A", 7, 3, {})}, file);
    ASSERT_EQ(last("A"), 1);
    EXPECT_EQ(m_out.mask[0], 0x20);
    EXPECT_TRUE(touched().empty());
}

TEST_F(LastDynParams, BitBehindTheHundredthIsReachedByItsMaskByte) {
    sample::DataFile file = smallFile();
    sample::Slot slot;
    slot.class_id = 1;
    slot.setLong(100, 77);
    slot.setDouble(104, 1.0);
    file.slots[7] = slot;
    file.slots[8] = slot;
    file.slots[8].mask[104 / 8] = 0;
    load({classWithParams(1, "A", 7, 128, {104}), classWithParams(2, "B", 8, 128, {104})}, file);
    ASSERT_EQ(last("A"), 1);
    EXPECT_EQ(+m_out.longs[100], 77);
    EXPECT_EQ(+m_out.doubles[104], 1.0);
    ASSERT_EQ(last("B"), 1);
    EXPECT_EQ(+m_out.longs[100], 77);
    for (const std::size_t place : touched())
        EXPECT_TRUE(place >= 16 + 100 * 4 && place < 16 + 101 * 4) << place;
}

TEST_F(LastDynParams, AllOf128ValuesArrive) {
    sample::DataFile file = smallFile();
    sample::Slot slot;
    slot.class_id = 1;
    std::vector<std::size_t> doubles;
    for (std::size_t i = 0; i < 128; ++i) {
        if (i % 3 == 0) {
            slot.setDouble(i, static_cast<double>(i) + 0.5);
            doubles.push_back(i);
        } else {
            slot.setLong(i, static_cast<std::int32_t>(i) - 500);
        }
    }
    file.slots[19] = slot;
    load({classWithParams(1, "A", 19, 128, doubles)}, file);
    ASSERT_EQ(last("A"), 1);
    for (std::size_t i = 0; i < 128; ++i) {
        if (i % 3 == 0)
            EXPECT_EQ(+m_out.doubles[i], static_cast<double>(i) + 0.5) << i;
        else
            EXPECT_EQ(+m_out.longs[i], static_cast<std::int32_t>(i) - 500) << i;
    }
}

TEST_F(LastDynParams, ClassOf256ParametersHasNone) {
    sample::DataFile file = smallFile();
    sample::Slot slot;
    slot.class_id = 1;
    slot.setLong(0, 1);
    slot.setLong(2, 3);
    file.slots[7] = slot;
    file.slots[8] = slot;
    file.slots[8].class_id = 2;
    load({classWithParams(1, "A", 7, 256, {}), classWithParams(2, "B", 8, 257, {})}, file);
    ASSERT_EQ(last("A"), 1);
    EXPECT_TRUE(touched().empty());
    ASSERT_EQ(last("B"), 1);
    EXPECT_EQ(+m_out.longs[0], 1);
    EXPECT_EQ(touched().size(), 4u); // one parameter: what is left of 257 in 8 bits
}

TEST_F(LastDynParams, ClassOfTheSlotDecides) {
    sample::DataFile file = smallFile();
    sample::Slot slot;
    slot.class_id = 2;
    slot.setDouble(0, 2.5);
    file.slots[7] = slot;
    load({classWithParams(1, "A", 7, 1, {}), classWithParams(2, "B", 8, 1, {0})}, file);
    ASSERT_EQ(last("A"), 1);
    EXPECT_EQ(+m_out.doubles[0], 2.5);
}

TEST_F(LastDynParams, SlotOfAClassThatIsNotLoadedFailsWithTheMaskCopied) {
    sample::DataFile file = smallFile();
    sample::Slot slot;
    slot.class_id = -9;
    slot.setLong(0, 1);
    file.slots[7] = slot;
    load({classWithParams(1, "A", 7, 1, {})}, file);
    EXPECT_EQ(last("A"), 0);
    EXPECT_EQ(lastError(), "could not find parameters for class_id=-9");
    EXPECT_EQ(m_out.mask[0], 1);
    EXPECT_TRUE(touched().empty());
}

TEST_F(LastDynParams, SecurityWithoutASlotIsInvalid) {
    load({classWithParams(1, "IN", 19, 1, {}), classWithParams(2, "OUT", 20, 1, {}),
          classWithParams(3, "BELOW", 0xFFFFFFFF, 1, {})},
         smallFile());
    EXPECT_EQ(last("OUT"), 0);
    EXPECT_EQ(lastError(), "invalid security in dynamic parameters request");
    EXPECT_EQ(last("BELOW"), 0);
    EXPECT_EQ(lastError(), "unknown error in dynamic parameters request");
    EXPECT_EQ(last("IN"), 0);
    EXPECT_EQ(lastError(), "could not find parameters for class_id=0");
}

TEST_F(LastDynParams, WritesOfAServerShowAtOnce) {
    sample::DataFile file = smallFile();
    sample::Slot slot;
    slot.class_id = 1;
    slot.setLong(0, 1);
    file.slots[7] = slot;
    load({classWithParams(1, "A", 7, 1, {})}, file);
    ASSERT_EQ(last("A"), 1);
    EXPECT_EQ(+m_out.longs[0], 1);
    {
        std::fstream server(m_folder.name("data.vd"),
                            std::ios::in | std::ios::out | std::ios::binary);
        server.seekp(static_cast<std::streamoff>(file.header.slotOffset(7) + 56));
        server.put(99);
    }
    ASSERT_EQ(last("A"), 1);
    EXPECT_EQ(+m_out.longs[0], 99);
}

TEST_F(LastDynParams, EmptyFileIsLaidOutAndHasNoRecords) {
    m_folder.writeClasses(
        {classWithParams(1, "A", 49'999, 1, {}), classWithParams(2, "B", 50'000, 1, {})});
    ASSERT_EQ(init_vdreader_classes_file(m_folder.name("class.vd").c_str()), 1);
    const std::string path = m_folder.write("data.vd", "");
    ASSERT_EQ(init_vdreader_dyn_params_file(path.c_str()), 1) << lastError();
    EXPECT_EQ(walked(), "");
    EXPECT_EQ(last("A"), 0);
    EXPECT_EQ(lastError(), "could not find parameters for class_id=0");
    EXPECT_EQ(last("B"), 0);
    EXPECT_EQ(lastError(), "invalid security in dynamic parameters request");
    EXPECT_GE(std::filesystem::file_size(path), 54'075'032u + 81'948u);
}

TEST_F(LastDynParams, NullBufferIsLookedAtBehindTheSlot) {
    load({classWithParams(1, "OUT", 20, 1, {})}, smallFile());
    EXPECT_EQ(get_sSecurityDesc_last_dynamic_params(securityOf("OUT"), nullptr), 0);
    EXPECT_EQ(lastError(), "invalid security in dynamic parameters request");
}

TEST_F(LastDynParams, NullBufferIsABrokenContract) {
    sample::DataFile file = smallFile();
    file.slots[7].class_id = 1;
    load({classWithParams(1, "A", 7, 1, {})}, file);
    EXPECT_DEATH(get_sSecurityDesc_last_dynamic_params(securityOf("A"), nullptr),
                 "vdreader: invalid parameter");
}
