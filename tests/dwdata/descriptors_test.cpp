#include "vdreader/descriptors.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

PARAMS_DESC withEnums(std::vector<std::pair<std::uint16_t, std::string>> texts) {
    PARAMS_DESC param;
    for (auto& [lang, text] : texts)
        param.names.push_back({lang, "", "", text});
    return param;
}

int sign(int value) {
    return (value > 0) - (value < 0);
}

} // namespace

TEST(ParamsDesc, DefaultsAreZeroAndTheNameIsNotTouched) {
    alignas(PARAMS_DESC) unsigned char memory[sizeof(PARAMS_DESC)];
    std::memset(memory, 0x5A, sizeof memory);
    // Hides from the compiler what the memory held, so that it is still there afterwards.
    asm volatile("" : : "r"(memory) : "memory");
    auto* param = new (memory) PARAMS_DESC;
    EXPECT_EQ(param->par_id, 0);
    EXPECT_EQ(param->flags, 0);
    EXPECT_EQ(param->scale, 0);
    EXPECT_EQ(param->par_info, 0u);
    EXPECT_EQ(param->par_info_ex, 0u);
    EXPECT_TRUE(param->names.empty());
    asm volatile("" : : "r"(memory) : "memory");
    for (const char c : param->db_name)
        EXPECT_EQ(c, 0x5A);
    std::destroy_at(param);
}

TEST(ParamsDesc, SizesThatTheFamilyReckonsWith) {
    EXPECT_EQ(PARAMS_DESC::GetMaxSize(), 2423u);
    EXPECT_EQ(SECURITY_DESC::GetMaxSize(), 1644);
    static_assert(std::is_same_v<decltype(PARAMS_DESC::GetMaxSize()), std::uint64_t>);
    static_assert(std::is_same_v<decltype(SECURITY_DESC::GetMaxSize()), std::int32_t>);
}

TEST(CompareEnumDesc, TextsOfOneLanguageAreCompared) {
    EXPECT_EQ(withEnums({{1, "ab"}}).CompareEnumDesc(withEnums({{1, "ab"}})), 0);
    EXPECT_EQ(withEnums({{1, "ab"}}).CompareEnumDesc(withEnums({{1, "abc"}})), -1);
    EXPECT_EQ(withEnums({{1, "abc"}}).CompareEnumDesc(withEnums({{1, "ab"}})), 1);
    EXPECT_EQ(sign(withEnums({{1, "b"}}).CompareEnumDesc(withEnums({{1, "abc"}}))), 1);
    EXPECT_EQ(sign(withEnums({{1, "a\x7f"}}).CompareEnumDesc(withEnums({{1, "a\x80"}}))), -1);
}

TEST(CompareEnumDesc, LanguagesOfOneSideAreIgnored) {
    EXPECT_EQ(withEnums({{1, "a"}}).CompareEnumDesc(withEnums({{2, "b"}})), 0);
    EXPECT_EQ(withEnums({{1, "a"}}).CompareEnumDesc(withEnums({})), 0);
    EXPECT_EQ(withEnums({}).CompareEnumDesc(withEnums({{1, "a"}})), 0);
    EXPECT_EQ(withEnums({{3, "x"}, {1, "a"}}).CompareEnumDesc(withEnums({{2, "b"}, {1, "a"}})), 0);
}

TEST(CompareEnumDesc, EveryPairOfALanguageIsTested) {
    EXPECT_EQ(sign(withEnums({{1, "a"}, {1, "c"}}).CompareEnumDesc(withEnums({{1, "a"}}))), 1);
    EXPECT_EQ(sign(withEnums({{1, "a"}}).CompareEnumDesc(withEnums({{1, "a"}, {1, "c"}}))), -1);
}

TEST(CompareEnumDesc, FirstDifferenceDecides) {
    const PARAMS_DESC left = withEnums({{1, "a"}, {2, "z"}});
    EXPECT_EQ(sign(left.CompareEnumDesc(withEnums({{2, "a"}, {1, "b"}}))), -1);
}

// ---- every field of each structure, in the order that other modules are compiled against ----

// clang-format off
#define PARAM_FIELDS(X) \
    X(par_id) X(flags) X(scale) X(db_name) X(names) X(par_info) X(par_info_ex)
#define SECURITY_FIELDS(X) \
    X(sec_id) X(sec_code) X(ISIN) X(reg_number) X(CFI) X(names) X(base_sec_code) \
    X(base_class_code) X(sec_type) X(sec_subtype) X(list_level) X(specific_flags) X(min_step) \
    X(face_value) X(face_unit) X(scale) X(mat_date) X(lot_size) X(unnamedByte1) X(unnamedValue1) \
    X(trade_currency) X(option_strike) X(CCY1) X(CCY2) X(couponvalue) X(couponperiod) \
    X(nextcoupon) X(buybackdate) X(buybackprice) X(yieldatprevwaprice) X(step_price_currency) \
    X(closeval) X(subDescs) X(stock_code) X(sedol_code) X(ric_code) X(cusip_code) X(stock_name) \
    X(bsid) X(qtyScale) X(qty_scale_CCY1) X(qty_scale_CCY2) X(unnamedValue2) X(expdate) \
    X(settleCode) X(tickSizeTableId) X(settleDate) X(accruedint) X(accruedIntScale) \
    X(unnamedValue3) X(benchmark) X(unnamedByte2) X(unnamedByte3)
// clang-format on

namespace {

template <class Field>
constexpr bool isPlain = std::is_arithmetic_v<std::remove_all_extents_t<Field>>;

// Gives every plain field bytes of its own, and the vectors entries.
class Filler {
  public:
    template <class Field>
    void operator()(Field& field) {
        if constexpr (isPlain<Field>) {
            std::memset(&field, ++m_fill, sizeof field);
        } else {
            field.resize(2);
            fillEntry(field[1]);
        }
    }

  private:
    static void fillEntry(PARAM_NAME& name) { name = {7, "short", "a long name of its own", "e"}; }
    static void fillEntry(SECURITY_NAME& name) { name = {7, "short", "a long name of its own"}; }
    static void fillEntry(SECURITY_SUBDESC& entry) { entry = {"a", "b", "c", 1, 2, 3}; }

    int m_fill = 0;
};

bool sameEntry(const PARAM_NAME& a, const PARAM_NAME& b) {
    return a.lang == b.lang && a.short_name == b.short_name && a.long_name == b.long_name &&
           a.enum_desc == b.enum_desc;
}
bool sameEntry(const SECURITY_NAME& a, const SECURITY_NAME& b) {
    return a.lang == b.lang && a.short_name == b.short_name && a.long_name == b.long_name;
}
bool sameEntry(const SECURITY_SUBDESC& a, const SECURITY_SUBDESC& b) {
    return std::memcmp(a.code1, b.code1, sizeof a.code1) == 0 &&
           std::memcmp(a.code2, b.code2, sizeof a.code2) == 0 &&
           std::memcmp(a.code3, b.code3, sizeof a.code3) == 0 && a.value == b.value &&
           a.kind == b.kind && a.info == b.info;
}

template <class Field>
bool sameField(const Field& a, const Field& b) {
    if constexpr (isPlain<Field>)
        return std::memcmp(&a, &b, sizeof a) == 0;
    else
        return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                          [](const auto& x, const auto& y) { return sameEntry(x, y); });
}

#define FILL(field) fill(descriptor.field);
#define COMPARE(field) EXPECT_TRUE(sameField(a.field, b.field)) << #field;
#define PLACE_OF(field) reinterpret_cast<const char*>(&descriptor.field),

PARAMS_DESC filledParam() {
    PARAMS_DESC descriptor;
    Filler fill;
    PARAM_FIELDS(FILL)
    return descriptor;
}

SECURITY_DESC filledSecurity() {
    SECURITY_DESC descriptor;
    Filler fill;
    SECURITY_FIELDS(FILL)
    return descriptor;
}

void expectSame(const PARAMS_DESC& a, const PARAMS_DESC& b) {
    PARAM_FIELDS(COMPARE)
}

void expectSame(const SECURITY_DESC& a, const SECURITY_DESC& b) {
    SECURITY_FIELDS(COMPARE)
}

// All four ways of copying and moving carry every field, and copies stand on their own.
template <class Descriptor>
void expectCarriedWhole(Descriptor (*make)()) {
    const Descriptor wanted = make();
    Descriptor original = make();
    Descriptor copy(original);
    Descriptor assigned;
    assigned = original;
    const Descriptor& self = assigned;
    assigned = self;
    original.names[1].long_name[0] = '#';
    expectSame(copy, wanted);
    expectSame(assigned, wanted);

    const auto* entries = copy.names.data();
    Descriptor moved(std::move(copy));
    EXPECT_EQ(moved.names.data(), entries) << "taken over, not copied";
    expectSame(moved, wanted);
    Descriptor target;
    target = std::move(moved);
    EXPECT_EQ(target.names.data(), entries);
    expectSame(target, wanted);
}

} // namespace

TEST(ParamsDesc, CopiesAndMovesCarryEveryField) {
    expectCarriedWhole(filledParam);
}

TEST(SecurityDesc, CopiesAndMovesCarryEveryField) {
    expectCarriedWhole(filledSecurity);
}

TEST(SecurityDesc, DefaultsAreEmptyButForThree) {
    const SECURITY_DESC a;
    // What the memory held must not show through.
    alignas(SECURITY_DESC) unsigned char memory[sizeof(SECURITY_DESC)];
    std::memset(memory, 0x5A, sizeof memory);
    asm volatile("" : : "r"(memory) : "memory");
    auto& b = *new (memory) SECURITY_DESC;
    SECURITY_FIELDS(COMPARE)
    EXPECT_EQ(b.lot_size, 1u);
    EXPECT_EQ(b.unnamedValue2, 1);
    EXPECT_EQ(b.unnamedValue3, -1);
    b.lot_size = 0;
    b.unnamedValue2 = 0;
    b.unnamedValue3 = 0;
    const auto isZero = [](const auto& field) {
        if constexpr (isPlain<std::remove_cvref_t<decltype(field)>>) {
            const auto* bytes = reinterpret_cast<const char*>(&field);
            return std::all_of(bytes, bytes + sizeof field, [](char c) { return c == 0; });
        } else {
            return field.empty();
        }
    };
#define EXPECT_ZERO(field) EXPECT_TRUE(isZero(b.field)) << #field;
    SECURITY_FIELDS(EXPECT_ZERO)
    std::destroy_at(&b);
}

TEST(Descriptors, FieldsStandInTheirOrder) {
    const auto inOrder = [](std::initializer_list<const char*> places) {
        return std::is_sorted(places.begin(), places.end(), std::less_equal<>());
    };
    {
        const PARAMS_DESC descriptor;
        EXPECT_TRUE(inOrder({PARAM_FIELDS(PLACE_OF)}));
        EXPECT_EQ(reinterpret_cast<const char*>(&descriptor.par_id),
                  reinterpret_cast<const char*>(&descriptor));
    }
    {
        const SECURITY_DESC descriptor;
        EXPECT_TRUE(inOrder({SECURITY_FIELDS(PLACE_OF)}));
    }
    {
        const PARAM_NAME descriptor;
        EXPECT_TRUE(
            inOrder({PLACE_OF(lang) PLACE_OF(short_name) PLACE_OF(long_name) PLACE_OF(enum_desc)}));
    }
    {
        const SECURITY_NAME descriptor;
        EXPECT_TRUE(inOrder({PLACE_OF(lang) PLACE_OF(short_name) PLACE_OF(long_name)}));
    }
    {
        const SECURITY_SUBDESC descriptor;
        EXPECT_TRUE(inOrder({PLACE_OF(code1) PLACE_OF(code2) PLACE_OF(code3) PLACE_OF(value)
                                 PLACE_OF(kind) PLACE_OF(info)}));
    }
}

TEST(EmptyStates, AssignmentReturnsTheObject) {
    sarn::data::SessionState state;
    sarn::data::SessionState otherState;
    EXPECT_EQ(&(state = otherState), &state);
    EXPECT_EQ(&(state = sarn::data::SessionState()), &state);
    sarn::data::ParamsIndexBind bind;
    sarn::data::ParamsIndexBind otherBind;
    EXPECT_EQ(&(bind = otherBind), &bind);
    EXPECT_EQ(&(bind = sarn::data::ParamsIndexBind()), &bind);
    const sarn::data::SessionState copiedState(state);
    const sarn::data::ParamsIndexBind copiedBind(bind);
    static_assert(std::is_empty_v<sarn::data::SessionState>);
    static_assert(std::is_empty_v<sarn::data::ParamsIndexBind>);
    static_assert(!std::is_polymorphic_v<SECURITY_DESC> && !std::is_polymorphic_v<PARAMS_DESC>);
}
