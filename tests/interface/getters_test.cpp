// Getters of classes, parameters and securities, against what was written into the file.

#include <gtest/gtest.h>

#include <type_traits>

#include "readers.h"

namespace {

sClassParUnitedDesc* foundClass = nullptr;
sSecurityDesc* foundSecurity = nullptr;

std::int32_t findClass(sClassParUnitedDesc* classDesc) {
    foundClass = classDesc;
    return 1;
}

std::int32_t findSecurity(sClassParUnitedDesc* classDesc, sSecurityDesc* security) {
    foundClass = classDesc;
    foundSecurity = security;
    return 1;
}

sample::Security distinctSecurity() {
    sample::Security s;
    s.sec_id = 0xF0000001;
    s.sec_code = "sec_code";
    s.ISIN = "ISIN";
    s.reg_number = "reg_number";
    s.CFI = "CFI";
    s.names = {{1, "short one", "a long name, longer than a small string"},
               {0xFFFF, "", ""},
               {1, "second of its language", "never found"}};
    s.base_sec_code = "base_sec";
    s.base_class_code = "base_class";
    s.sec_type = 0xFF01;
    s.sec_subtype = 0xFF02;
    s.list_level = 0xFF03;
    s.specific_flags = 0xFF000004;
    s.min_step = 0xFF000005;
    s.face_value = 1.5;
    s.face_unit = "face_unit";
    s.scale = 0xFFFF;
    s.mat_date = 0xFF000007;
    s.lot_size = 0xFF000008;
    s.unnamedByte1 = 0xF9;
    s.unnamedValue1 = -10;
    s.trade_currency = "trade_curr";
    s.option_strike = -11;
    s.CCY1 = "CCY1";
    s.CCY2 = "CCY2";
    s.couponvalue = -2.5;
    s.couponperiod = 0xFF0C;
    s.nextcoupon = 0xFF00000D;
    s.buybackdate = 0xFF00000E;
    s.buybackprice = INT64_MIN;
    s.yieldatprevwaprice = 3.5;
    s.step_price_currency = "step_price";
    s.closeval = 0xFF000010;
    s.subDescs = {{"a", "b", "c", 1, 2, 3}};
    s.stock_code = "stock_code";
    s.sedol_code = "sedol";
    s.ric_code = std::string(32, 'r');
    s.cusip_code = "cusip";
    s.stock_name = "stock_name";
    s.bsid = "bsid";
    s.qtyScale = 0xFF11;
    s.qty_scale_CCY1 = 0xFF12;
    s.qty_scale_CCY2 = 0xFF13;
    s.unnamedValue2 = -14;
    s.expdate = 0xFF000015;
    s.settleCode = "settle";
    s.tickSizeTableId = std::string(64, 't');
    s.settleDate = 0xFF000016;
    s.accruedIntScale = -1;
    s.accruedint = INT64_MAX;
    s.unnamedValue3 = -18;
    s.unnamedByte3 = 0xF3;
    s.benchmark = "benchmark";
    return s;
}

sample::ClassRecord distinctClass() {
    sample::ClassRecord record;
    record.classId = 5;
    record.classCode = "CODE";
    record.fh = "text fh";
    record.fl = "text fl";
    record.ch = "text ch";
    record.cl = std::string(256, 'c');
    record.securities = {distinctSecurity()};
    for (std::uint16_t i = 0; i < 3; ++i) {
        sample::Param param;
        param.par_id = static_cast<std::uint16_t>(0xFF00 + i);
        param.flags = static_cast<std::uint16_t>(0xFE00 + i);
        param.scale = static_cast<std::uint16_t>(0xFD00 + i);
        param.db_name = "DB_" + std::to_string(i);
        param.names = {{7, "short" + std::to_string(i), "long" + std::to_string(i), "0=a;1=b"},
                       {7, "hidden", "hidden", "hidden"},
                       {8, "", "", ""}};
        param.par_info = 0xFC000000 + i;
        param.par_info_ex = 0xFB000000 + i;
        record.params.push_back(param);
    }
    return record;
}

class Getters : public testing::Test {
  protected:
    void SetUp() override {
        m_written = distinctClass();
        const std::string file = m_folder.writeClasses({m_written});
        ASSERT_EQ(init_vdreader_classes_file(file.c_str()), 1) << lastError();
        ASSERT_EQ(for_each_security(findSecurity), 1);
        ASSERT_NE(foundSecurity, nullptr);
    }

    ReaderFolder m_folder;
    sample::ClassRecord m_written;
};

} // namespace

TEST_F(Getters, ClassTexts) {
    EXPECT_EQ(get_sClassParUnitedDesc_class_code(foundClass), m_written.classCode);
    EXPECT_EQ(get_sClassParUnitedDesc_fh(foundClass), m_written.fh);
    EXPECT_EQ(get_sClassParUnitedDesc_fl(foundClass), m_written.fl);
    EXPECT_EQ(get_sClassParUnitedDesc_ch(foundClass), m_written.ch);
    EXPECT_EQ(get_sClassParUnitedDesc_cl(foundClass), m_written.cl);
}

TEST_F(Getters, ParameterFields) {
    sParDesc* param = get_sClassParUnitedDesc_par_desc(foundClass);
    for (const sample::Param& written : m_written.params) {
        ASSERT_NE(param, nullptr);
        EXPECT_EQ(get_sParDesc_par_id(param), written.par_id);
        EXPECT_EQ(get_sParDesc_flags(param), written.flags);
        EXPECT_EQ(get_sParDesc_scale(param), written.scale);
        EXPECT_EQ(get_sParDesc_db_name(param), written.db_name);
        EXPECT_EQ(get_sParDesc_par_info(param), written.par_info);
        EXPECT_EQ(get_sParDesc_par_info_ex(param), written.par_info_ex);
        EXPECT_EQ(get_sParDesc_short_name(param, 7), written.names[0].short_name);
        EXPECT_EQ(get_sParDesc_long_name(param, 7), written.names[0].long_name);
        EXPECT_EQ(get_sParDesc_enum(param, 7), written.names[0].enum_desc);
        param = get_sParDesc_next(foundClass);
    }
    EXPECT_EQ(param, nullptr);
    EXPECT_EQ(get_sParDesc_next(foundClass), nullptr) << "and null again";
    EXPECT_EQ(lastError(), "Unknown error");
}

#define EXPECT_FIELD(field) EXPECT_EQ(get_sSecurityDesc_##field(foundSecurity), written.field)

TEST_F(Getters, SecurityTexts) {
    const sample::Security& written = m_written.securities[0];
    EXPECT_FIELD(CCY1);
    EXPECT_FIELD(CCY2);
    EXPECT_FIELD(CFI);
    EXPECT_FIELD(ISIN);
    EXPECT_FIELD(base_class_code);
    EXPECT_FIELD(base_sec_code);
    EXPECT_FIELD(benchmark);
    EXPECT_FIELD(bsid);
    EXPECT_FIELD(cusip_code);
    EXPECT_FIELD(face_unit);
    EXPECT_FIELD(reg_number);
    EXPECT_FIELD(ric_code);
    EXPECT_FIELD(sec_code);
    EXPECT_FIELD(sedol_code);
    EXPECT_FIELD(settleCode);
    EXPECT_FIELD(step_price_currency);
    EXPECT_FIELD(stock_code);
    EXPECT_FIELD(stock_name);
    EXPECT_FIELD(tickSizeTableId);
    EXPECT_FIELD(trade_currency);
}

TEST_F(Getters, SecurityNumbers) {
    const sample::Security& written = m_written.securities[0];
    EXPECT_FIELD(couponperiod);
    EXPECT_FIELD(list_level);
    EXPECT_FIELD(qtyScale);
    EXPECT_FIELD(qty_scale_CCY1);
    EXPECT_FIELD(qty_scale_CCY2);
    EXPECT_FIELD(scale);
    EXPECT_FIELD(sec_subtype);
    EXPECT_FIELD(sec_type);
    EXPECT_FIELD(buybackdate);
    EXPECT_FIELD(closeval);
    EXPECT_FIELD(expdate);
    EXPECT_FIELD(lot_size);
    EXPECT_FIELD(mat_date);
    EXPECT_FIELD(min_step);
    EXPECT_FIELD(nextcoupon);
    EXPECT_FIELD(settleDate);
    EXPECT_FIELD(specific_flags);
    EXPECT_FIELD(accruedint);
    EXPECT_FIELD(buybackprice);
    EXPECT_FIELD(option_strike);
    EXPECT_FIELD(couponvalue);
    EXPECT_FIELD(face_value);
    EXPECT_FIELD(yieldatprevwaprice);
}

TEST_F(Getters, SameBitsAreExtendedByTheFieldsSign) {
    EXPECT_EQ(get_sSecurityDesc_accruedIntScale(foundSecurity), -1);
    EXPECT_EQ(get_sSecurityDesc_scale(foundSecurity), 65535u);
    static_assert(
        std::is_same_v<decltype(get_sSecurityDesc_accruedIntScale(nullptr)), std::int32_t>);
    static_assert(std::is_same_v<decltype(get_sSecurityDesc_scale(nullptr)), std::uint32_t>);
}

TEST_F(Getters, NamesOfALanguage) {
    EXPECT_STREQ(get_sSecurityDesc_short_name(foundSecurity, 1), "short one");
    EXPECT_STREQ(get_sSecurityDesc_long_name(foundSecurity, 1),
                 "a long name, longer than a small string");
    EXPECT_STREQ(get_sSecurityDesc_short_name(foundSecurity, 0xFFFF), "")
        << "an entry with an empty text is not a missing one";
    EXPECT_STREQ(get_sSecurityDesc_long_name(foundSecurity, 0xFFFF), "");
    EXPECT_EQ(get_sSecurityDesc_short_name(foundSecurity, 2), nullptr);
    EXPECT_EQ(get_sSecurityDesc_long_name(foundSecurity, 0), nullptr);
    sParDesc* param = get_sClassParUnitedDesc_par_desc(foundClass);
    EXPECT_STREQ(get_sParDesc_short_name(param, 8), "");
    EXPECT_EQ(get_sParDesc_short_name(param, 9), nullptr);
    EXPECT_EQ(get_sParDesc_long_name(param, 9), nullptr);
    EXPECT_EQ(get_sParDesc_enum(param, 9), nullptr);
    EXPECT_EQ(lastError(), "Unknown error") << "a missing language is no failure";
}

TEST_F(Getters, ParameterWalkStartsAnew) {
    sParDesc* first = get_sClassParUnitedDesc_par_desc(foundClass);
    sParDesc* second = get_sParDesc_next(foundClass);
    EXPECT_NE(first, second);
    EXPECT_EQ(get_sClassParUnitedDesc_par_desc(foundClass), first);
    EXPECT_EQ(get_sParDesc_next(foundClass), second);
}

TEST_F(Getters, NextOfAFreshClassIsTheFirstParameter) {
    sParDesc* first = get_sParDesc_next(foundClass);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(get_sParDesc_par_id(first), m_written.params[0].par_id);
    EXPECT_EQ(get_sClassParUnitedDesc_par_desc(foundClass), first);
}

TEST_F(Getters, ClassWithoutParametersHasNone) {
    ASSERT_EQ(init_vdreader_classes_file(m_folder.writeClasses({classOf(1, "A")}).c_str()), 1);
    ASSERT_EQ(for_each_class(findClass), 1);
    EXPECT_EQ(get_sClassParUnitedDesc_par_desc(foundClass), nullptr);
    EXPECT_EQ(get_sParDesc_next(foundClass), nullptr);
    EXPECT_EQ(lastError(), "Unknown error");
}

// ---- null records ----

namespace {

template <class Getter, class... Arguments>
void expectRefused(Getter getter, const std::string& name, Arguments... arguments) {
    EXPECT_EQ(getter(nullptr, arguments...), decltype(getter(nullptr, arguments...)){}) << name;
    EXPECT_EQ(lastError(), "Invalid argument: " + name);
}

} // namespace

#define EXPECT_REFUSED(getter, ...) expectRefused(getter, #getter __VA_OPT__(, ) __VA_ARGS__)

TEST(NullRecord, ClassGettersNameThemselves) {
    EXPECT_REFUSED(get_sClassParUnitedDesc_class_code);
    EXPECT_REFUSED(get_sClassParUnitedDesc_fh);
    EXPECT_REFUSED(get_sClassParUnitedDesc_fl);
    EXPECT_REFUSED(get_sClassParUnitedDesc_ch);
    EXPECT_REFUSED(get_sClassParUnitedDesc_cl);
    EXPECT_REFUSED(get_sClassParUnitedDesc_par_desc);
}

TEST(NullRecord, ParameterGettersNameThemselves) {
    EXPECT_REFUSED(get_sParDesc_par_id);
    EXPECT_REFUSED(get_sParDesc_flags);
    EXPECT_REFUSED(get_sParDesc_scale);
    EXPECT_REFUSED(get_sParDesc_par_info);
    EXPECT_REFUSED(get_sParDesc_par_info_ex);
    EXPECT_REFUSED(get_sParDesc_short_name, std::uint16_t{7});
    EXPECT_REFUSED(get_sParDesc_long_name, std::uint16_t{7});
    EXPECT_REFUSED(get_sParDesc_enum, std::uint16_t{7});
    EXPECT_REFUSED(get_sParDesc_next);
}

TEST(NullRecord, DatabaseNameGetterNamesTheFlagsGetter) {
    EXPECT_EQ(get_sParDesc_db_name(nullptr), nullptr);
    EXPECT_EQ(lastError(), "Invalid argument: get_sParDesc_flags");
}

TEST(NullRecord, SecurityGettersNameThemselves) {
    EXPECT_REFUSED(get_sSecurityDesc_CCY1);
    EXPECT_REFUSED(get_sSecurityDesc_CCY2);
    EXPECT_REFUSED(get_sSecurityDesc_CFI);
    EXPECT_REFUSED(get_sSecurityDesc_ISIN);
    EXPECT_REFUSED(get_sSecurityDesc_base_class_code);
    EXPECT_REFUSED(get_sSecurityDesc_base_sec_code);
    EXPECT_REFUSED(get_sSecurityDesc_benchmark);
    EXPECT_REFUSED(get_sSecurityDesc_bsid);
    EXPECT_REFUSED(get_sSecurityDesc_cusip_code);
    EXPECT_REFUSED(get_sSecurityDesc_face_unit);
    EXPECT_REFUSED(get_sSecurityDesc_reg_number);
    EXPECT_REFUSED(get_sSecurityDesc_ric_code);
    EXPECT_REFUSED(get_sSecurityDesc_sec_code);
    EXPECT_REFUSED(get_sSecurityDesc_sedol_code);
    EXPECT_REFUSED(get_sSecurityDesc_settleCode);
    EXPECT_REFUSED(get_sSecurityDesc_step_price_currency);
    EXPECT_REFUSED(get_sSecurityDesc_stock_code);
    EXPECT_REFUSED(get_sSecurityDesc_stock_name);
    EXPECT_REFUSED(get_sSecurityDesc_tickSizeTableId);
    EXPECT_REFUSED(get_sSecurityDesc_trade_currency);
    EXPECT_REFUSED(get_sSecurityDesc_couponperiod);
    EXPECT_REFUSED(get_sSecurityDesc_list_level);
    EXPECT_REFUSED(get_sSecurityDesc_qtyScale);
    EXPECT_REFUSED(get_sSecurityDesc_qty_scale_CCY1);
    EXPECT_REFUSED(get_sSecurityDesc_qty_scale_CCY2);
    EXPECT_REFUSED(get_sSecurityDesc_scale);
    EXPECT_REFUSED(get_sSecurityDesc_sec_subtype);
    EXPECT_REFUSED(get_sSecurityDesc_sec_type);
    EXPECT_REFUSED(get_sSecurityDesc_accruedIntScale);
    EXPECT_REFUSED(get_sSecurityDesc_buybackdate);
    EXPECT_REFUSED(get_sSecurityDesc_closeval);
    EXPECT_REFUSED(get_sSecurityDesc_expdate);
    EXPECT_REFUSED(get_sSecurityDesc_lot_size);
    EXPECT_REFUSED(get_sSecurityDesc_mat_date);
    EXPECT_REFUSED(get_sSecurityDesc_min_step);
    EXPECT_REFUSED(get_sSecurityDesc_nextcoupon);
    EXPECT_REFUSED(get_sSecurityDesc_settleDate);
    EXPECT_REFUSED(get_sSecurityDesc_specific_flags);
    EXPECT_REFUSED(get_sSecurityDesc_accruedint);
    EXPECT_REFUSED(get_sSecurityDesc_buybackprice);
    EXPECT_REFUSED(get_sSecurityDesc_option_strike);
    EXPECT_REFUSED(get_sSecurityDesc_couponvalue);
    EXPECT_REFUSED(get_sSecurityDesc_face_value);
    EXPECT_REFUSED(get_sSecurityDesc_yieldatprevwaprice);
    EXPECT_REFUSED(get_sSecurityDesc_short_name, std::uint16_t{1});
    EXPECT_REFUSED(get_sSecurityDesc_long_name, std::uint16_t{1});
}
