#include "logs/CMsgDiag.h"

#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

template <class Value>
using Rows = std::vector<std::pair<std::string, Value>>;

template <class Value>
void expectNames(const MsgNames<Value>& tables, const Rows<Value>& rows) {
    EXPECT_EQ(tables.names.size(), rows.size());
    EXPECT_EQ(tables.values.size(), rows.size());
    std::uint32_t number = 0;
    for (const auto& [name, value] : rows) {
        EXPECT_EQ(static_cast<std::uint32_t>(value), number++);
        EXPECT_EQ(tables.names.at(value), name);
        EXPECT_EQ(tables.values.at(name), value);
    }
}

using Fields = std::vector<std::pair<std::string, int>>;

Fields fieldsOf(const std::vector<MsgField>& fields) {
    Fields found;
    for (const MsgField& field : fields)
        found.emplace_back(field.text, field.paramIndex);
    return found;
}

void expectElem(const CMsgDiagElem& elem, MsgLevel level, MsgPriority priority, bool configured,
                const Fields& fields) {
    EXPECT_EQ(elem.level, level);
    EXPECT_EQ(elem.priority, priority);
    EXPECT_EQ(elem.configured, configured ? 1u : 0u);
    EXPECT_EQ(elem.name, configured ? "General" : "");
    EXPECT_EQ(elem.fieldCount, fields.size());
    EXPECT_EQ(fieldsOf(elem.fields), fields);
    EXPECT_EQ(elem.extraName, "");
    EXPECT_EQ(elem.extraNumber, 0);
}

// The scheme's fields and what it says on standard error.
std::pair<Fields, std::string> schemeOf(std::uint32_t type) {
    testing::internal::CaptureStderr();
    const std::vector<MsgField> fields = fieldsOfScheme(type);
    return {fieldsOf(fields), testing::internal::GetCapturedStderr()};
}

// Where a member stands behind the start of its object.
template <class Object, class Member>
std::ptrdiff_t placeOf(const Object& object, const Member& member) {
    return reinterpret_cast<const char*>(&member) - reinterpret_cast<const char*>(&object);
}

} // namespace

TEST(MsgDiag, LevelsAndPrioritiesAreNamedBothWays) {
    expectNames<MsgLevel>(msgLevelNames(), {{"Unknown", MsgLevel::Unknown},
                                            {"Error", MsgLevel::Error},
                                            {"Info", MsgLevel::Info},
                                            {"Warning", MsgLevel::Warning},
                                            {"Debug", MsgLevel::Debug}});
    expectNames<MsgPriority>(msgPriorityNames(), {{"Undefined", MsgPriority::Undefined},
                                                  {"High", MsgPriority::High},
                                                  {"Low", MsgPriority::Low},
                                                  {"Normal", MsgPriority::Normal}});
}

TEST(MsgDiag, SchemesHaveTheirFields) {
    EXPECT_EQ(schemeOf(0), std::pair(Fields{{"<", 1}, {"", 2}, {" ", 3}}, std::string()));
    EXPECT_EQ(schemeOf(1), std::pair(Fields{{"", 1}}, std::string()));
}

TEST(MsgDiag, OtherSchemesAreReportedAndHaveNoField) {
    for (const std::uint32_t type : {2u, 3u, 0x7FFFFFFFu, 0xFFFFFFFFu})
        EXPECT_EQ(schemeOf(type), std::pair(Fields{}, std::string("Unknown log scheme type.\n")))
            << type;
}

TEST(MsgDiag, SetHasAnElementOfEachLevel) {
    const Fields fields = {{"<", 1}, {"", 2}, {" ", 3}};
    const CMsgDiagSet set(fieldsOfScheme(0));
    expectElem(set.error, MsgLevel::Error, MsgPriority::High, true, fields);
    expectElem(set.info, MsgLevel::Info, MsgPriority::Normal, true, fields);
    expectElem(set.warning, MsgLevel::Warning, MsgPriority::High, true, fields);
    expectElem(set.debug, MsgLevel::Debug, MsgPriority::Undefined, false, {});
}

TEST(MsgDiag, SetOfNoFieldsIsConfiguredAllTheSame) {
    const CMsgDiagSet set({});
    expectElem(set.info, MsgLevel::Info, MsgPriority::Normal, true, {});
}

TEST(MsgDiag, ElementsAreFoundByLevel) {
    const CMsgDiagSet set(fieldsOfScheme(1));
    EXPECT_EQ(set.find(1), &set.error);
    EXPECT_EQ(set.find(2), &set.info);
    EXPECT_EQ(set.find(3), &set.warning);
    EXPECT_EQ(set.find(4), &set.debug);
    for (const int level : {0, 5, 6, 128, 255})
        EXPECT_EQ(set.find(static_cast<std::uint8_t>(level)), nullptr) << level;
}

TEST(MsgDiag, MembersStandInTheirOrder) {
    const CMsgDiagElem elem;
    EXPECT_TRUE(std::has_virtual_destructor_v<CMsgDiagElem>);
    EXPECT_EQ(placeOf(elem, elem.configured), 8); // behind the table of virtual functions
    EXPECT_EQ(placeOf(elem, elem.level), 12);
    EXPECT_EQ(placeOf(elem, elem.priority), 16);
    EXPECT_LT(placeOf(elem, elem.priority), placeOf(elem, elem.name));
    EXPECT_LT(placeOf(elem, elem.name), placeOf(elem, elem.fieldCount));
    EXPECT_LT(placeOf(elem, elem.fieldCount), placeOf(elem, elem.fields));
    EXPECT_LT(placeOf(elem, elem.fields), placeOf(elem, elem.extraName));
    EXPECT_LT(placeOf(elem, elem.extraName), placeOf(elem, elem.extraNumber));
    const CMsgDiagSet set({});
    const auto size = static_cast<std::ptrdiff_t>(sizeof(CMsgDiagElem));
    EXPECT_EQ(placeOf(set, set.error), 0);
    EXPECT_EQ(placeOf(set, set.info), size);
    EXPECT_EQ(placeOf(set, set.warning), 2 * size);
    EXPECT_EQ(placeOf(set, set.debug), 3 * size);
}

TEST(MsgDiag, ElementsOfTheLevelsAddNothing) {
    EXPECT_TRUE((std::is_base_of_v<CMsgDiagElem, CErrMsgDiagElem>));
    EXPECT_TRUE((std::is_base_of_v<CMsgDiagElem, CInfoMsgDiagElem>));
    EXPECT_TRUE((std::is_base_of_v<CMsgDiagElem, CWarningMsgDiagElem>));
    EXPECT_TRUE((std::is_base_of_v<CMsgDiagElem, CDebugMsgDiagElem>));
    EXPECT_EQ(sizeof(CErrMsgDiagElem), sizeof(CMsgDiagElem));
    EXPECT_EQ(sizeof(CInfoMsgDiagElem), sizeof(CMsgDiagElem));
    EXPECT_EQ(sizeof(CWarningMsgDiagElem), sizeof(CMsgDiagElem));
    EXPECT_EQ(sizeof(CDebugMsgDiagElem), sizeof(CMsgDiagElem));
}
