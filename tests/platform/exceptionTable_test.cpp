// Exception tables, byte by byte.

#include "../../platform/src/exceptionTable.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using platform::exceptionTableAnswer;
using platform::TableAnswer;
using Bytes = std::vector<unsigned char>;

// No landing pad base, no types, call sites in ULEB128.
Bytes tableOf(const Bytes& rows, const Bytes& actions = {}) {
    Bytes table = {0xff, 0xff, 0x01, static_cast<unsigned char>(rows.size())};
    table.insert(table.end(), rows.begin(), rows.end());
    table.insert(table.end(), actions.begin(), actions.end());
    table.insert(table.end(), 256, 0); // what stands behind counts for nothing
    return table;
}

TableAnswer at(const Bytes& table, std::uint64_t offset) {
    return exceptionTableAnswer(table.data(), offset);
}

} // namespace

TEST(ExceptionTable, FunctionWithoutATablePasses) {
    EXPECT_EQ(exceptionTableAnswer(nullptr, 0), TableAnswer::passes);
    EXPECT_EQ(exceptionTableAnswer(nullptr, 1000), TableAnswer::passes);
}

TEST(ExceptionTable, TableWithoutRowsIsThatOfAFunctionThatLetsNothingOut) {
    EXPECT_EQ(at(tableOf({}), 0), TableAnswer::catches);
}

TEST(ExceptionTable, RowWithoutALandingPadPasses) {
    const Bytes table = tableOf({4, 3, 0, 0});
    EXPECT_EQ(at(table, 4), TableAnswer::passes);
    EXPECT_EQ(at(table, 6), TableAnswer::passes);
}

TEST(ExceptionTable, InstructionsOutsideAllRowsAreSilent) {
    const Bytes table = tableOf({4, 3, 0, 0, 10, 2, 9, 0});
    EXPECT_EQ(at(table, 3), TableAnswer::silent);
    EXPECT_EQ(at(table, 7), TableAnswer::silent);
    EXPECT_EQ(at(table, 9), TableAnswer::silent);
    EXPECT_EQ(at(table, 10), TableAnswer::passes);
    EXPECT_EQ(at(table, 12), TableAnswer::silent);
}

TEST(ExceptionTable, CleanupsPassAndHandlersCatch) {
    // Actions: at 1 a cleanup, at 3 a handler, at 5 a cleanup and then the handler at 3 (the
    // distance counts from its own place), at 7 a list of exceptions that may pass.
    const Bytes actions = {0, 0, 1, 0, 0, 0x7d, 0x7f, 0};
    const Bytes rows = {0, 1, 9, 0, 1, 1, 9, 1, 2, 1, 9, 3, 3, 1, 9, 5, 4, 1, 9, 7};
    const Bytes table = tableOf(rows, actions);
    EXPECT_EQ(at(table, 0), TableAnswer::passes);
    EXPECT_EQ(at(table, 1), TableAnswer::passes);
    EXPECT_EQ(at(table, 2), TableAnswer::catches);
    EXPECT_EQ(at(table, 3), TableAnswer::catches);
    EXPECT_EQ(at(table, 4), TableAnswer::catches);
}

TEST(ExceptionTable, NumbersOfSeveralBytesAreRead) {
    const Bytes table = tableOf({0x80, 0x02, 0x81, 0x01, 0, 0}); // 256, 129
    EXPECT_EQ(at(table, 255), TableAnswer::silent);
    EXPECT_EQ(at(table, 256), TableAnswer::passes);
    EXPECT_EQ(at(table, 384), TableAnswer::passes);
    EXPECT_EQ(at(table, 385), TableAnswer::silent);
}

TEST(ExceptionTable, LandingPadBaseAndTypesAreSkipped) {
    const Bytes rows = {0, 2, 0, 0};
    for (const Bytes& head :
         {Bytes{0x1b, 1, 2, 3, 4, 0xff, 0x01, 4}, // 4 bytes
          Bytes{0x02, 1, 2, 0xff, 0x01, 4}, Bytes{0x00, 1, 2, 3, 4, 5, 6, 7, 8, 0xff, 0x01, 4},
          Bytes{0xff, 0x9b, 0x85, 0x01, 0x01, 4}}) {
        Bytes table = head;
        table.insert(table.end(), rows.begin(), rows.end());
        EXPECT_EQ(at(table, 1), TableAnswer::passes);
        EXPECT_EQ(at(table, 2), TableAnswer::silent);
    }
}

TEST(ExceptionTable, RowsOfFixedWidthAreRead) {
    const Bytes two = {0xff, 0xff, 0x02, 7, 1, 0, 2, 0, 0, 0, 0};
    EXPECT_EQ(at(two, 0), TableAnswer::silent);
    EXPECT_EQ(at(two, 2), TableAnswer::passes);
    const Bytes four = {0xff, 0xff, 0x03, 13, 1, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(at(four, 0), TableAnswer::silent);
    EXPECT_EQ(at(four, 2), TableAnswer::passes);
    EXPECT_EQ(at(four, 3), TableAnswer::silent);
}
