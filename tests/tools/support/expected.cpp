// One line a field.

#include "support/expected.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace json = boost::json;

namespace toolTest {

namespace {

template <typename Name>
const Name* named(const std::vector<Name>& names, std::uint16_t lang) {
    const auto found = std::find_if(names.begin(), names.end(),
                                    [&](const Name& name) { return name.lang == lang; });
    return found == names.end() ? nullptr : &*found;
}

json::value text(const std::string& stored) {
    return json::string(fromLatin1(stored));
}

} // namespace

std::string fromLatin1(const std::string& text) {
    std::string utf8;
    for (const char letter : text) {
        const unsigned byte = static_cast<unsigned char>(letter);
        if (byte < 0x80) {
            utf8 += letter;
        } else {
            utf8 += static_cast<char>(byte < 0xC0 ? 0xC2 : 0xC3);
            utf8 += static_cast<char>(0x80 | (byte & 0x3F));
        }
    }
    return utf8;
}

json::object expectedClass(const sample::ClassRecord& record) {
    return {{"class_code", text(record.classCode)},
            {"fh", text(record.fh)},
            {"fl", text(record.fl)},
            {"ch", text(record.ch)},
            {"cl", text(record.cl)},
            {"params", record.params.size()},
            {"securities", record.securities.size()}};
}

json::object expectedSecurity(const sample::ClassRecord& record, const sample::Security& security,
                              std::uint16_t lang) {
    const sample::Name* name = named(security.names, lang);
    json::object fields;
    fields["class_code"] = text(record.classCode);
    fields["short_name"] = name ? text(name->short_name) : nullptr;
    fields["long_name"] = name ? text(name->long_name) : nullptr;
#define TEXT(field) fields[#field] = text(security.field)
#define NUMBER(field) fields[#field] = security.field
    TEXT(CCY1);
    TEXT(CCY2);
    TEXT(CFI);
    TEXT(ISIN);
    TEXT(base_class_code);
    TEXT(base_sec_code);
    TEXT(benchmark);
    TEXT(bsid);
    TEXT(cusip_code);
    TEXT(face_unit);
    TEXT(reg_number);
    TEXT(ric_code);
    TEXT(sec_code);
    TEXT(sedol_code);
    TEXT(settleCode);
    TEXT(step_price_currency);
    TEXT(stock_code);
    TEXT(stock_name);
    TEXT(tickSizeTableId);
    TEXT(trade_currency);
    NUMBER(couponperiod);
    NUMBER(list_level);
    NUMBER(qtyScale);
    NUMBER(qty_scale_CCY1);
    NUMBER(qty_scale_CCY2);
    NUMBER(scale);
    NUMBER(sec_subtype);
    NUMBER(sec_type);
    NUMBER(accruedIntScale);
    NUMBER(buybackdate);
    NUMBER(closeval);
    NUMBER(expdate);
    NUMBER(lot_size);
    NUMBER(mat_date);
    NUMBER(min_step);
    NUMBER(nextcoupon);
    NUMBER(settleDate);
    NUMBER(specific_flags);
    NUMBER(accruedint);
    NUMBER(buybackprice);
    NUMBER(option_strike);
    NUMBER(couponvalue);
    NUMBER(face_value);
    NUMBER(yieldatprevwaprice);
#undef TEXT
#undef NUMBER
    return fields;
}

json::object expectedParam(const sample::ClassRecord& record, std::size_t index,
                           std::uint16_t lang) {
    const sample::Param& param = record.params[index];
    const sample::ParamName* name = named(param.names, lang);
    return {{"class_code", text(record.classCode)},
            {"index", index},
            {"par_id", param.par_id},
            {"flags", param.flags},
            {"scale", param.scale},
            {"db_name", text(param.db_name)},
            {"par_info", param.par_info},
            {"par_info_ex", param.par_info_ex},
            {"short_name", name ? text(name->short_name) : nullptr},
            {"long_name", name ? text(name->long_name) : nullptr},
            {"enum", name ? text(name->enum_desc) : nullptr}};
}

json::object expectedLimit(const sample::FutLimit& limit) {
    json::object fields;
#define TEXT(field) fields[#field] = text(limit.field)
#define NUMBER(field) fields[#field] = limit.field
    TEXT(firmid);
    TEXT(trdaccid);
    TEXT(currcode);
    NUMBER(limit_type);
    NUMBER(risk_level);
    NUMBER(liquidity_coeff);
    NUMBER(cbp_prev_limit);
    NUMBER(cbplimit);
    NUMBER(cbplused);
    NUMBER(cbplplanned);
    NUMBER(varmargin);
    NUMBER(accruedint);
    NUMBER(kgo);
    NUMBER(cbplused_for_orders);
    NUMBER(cbplused_for_positions);
    NUMBER(options_premium);
    NUMBER(net_options_value);
    NUMBER(ts_comission);
    NUMBER(real_varmargin);
    NUMBER(go_planned);
    NUMBER(go_without_orders);
    NUMBER(indicative_varmargin);
#undef TEXT
#undef NUMBER
    return fields;
}

json::object expectedPosition(const sample::FutPosition& position) {
    json::object fields;
#define TEXT(field) fields[#field] = text(position.field)
#define NUMBER(field) fields[#field] = position.field
    TEXT(firmid);
    TEXT(trdaccid);
    TEXT(seccode);
    NUMBER(start_buy);
    NUMBER(start_sell);
    NUMBER(start_net);
    NUMBER(today_buy);
    NUMBER(today_sell);
    NUMBER(total_net);
    NUMBER(open_buys);
    NUMBER(open_sells);
    NUMBER(cbplplanned);
    NUMBER(varmargin);
    NUMBER(avrposnprice);
    NUMBER(positionvalue);
    NUMBER(total_varmargin);
    NUMBER(real_varmargin);
    NUMBER(premium);
#undef TEXT
#undef NUMBER
    return fields;
}

void expectSameFields(const json::object& shown, const json::object& expected) {
    EXPECT_EQ(shown.size(), expected.size());
    for (const auto& field : expected) {
        const json::value* value = shown.if_contains(field.key());
        ASSERT_NE(value, nullptr) << field.key();
        // The parser rounds the last place its own way; the digits have a test of their own.
        if (field.value().is_double())
            EXPECT_DOUBLE_EQ(value->to_number<double>(), field.value().as_double()) << field.key();
        else
            EXPECT_EQ(*value, field.value()) << field.key();
    }
}

} // namespace toolTest
