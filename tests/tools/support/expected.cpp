// One line a field.

#include "support/expected.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

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

std::string hexOf(std::string_view bytes) {
    std::string digits;
    for (const char letter : bytes) {
        char pair[3];
        std::snprintf(pair, sizeof pair, "%02x", static_cast<unsigned char>(letter));
        digits += pair;
    }
    return digits;
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

json::object expectedLast(const sample::ClassRecord& record, const sample::Security& security,
                          const sample::Slot* slot) {
    json::object fields{{"class_code", text(record.classCode)},
                        {"sec_code", text(security.sec_code)},
                        {"values", nullptr}};
    if (!slot)
        return fields;
    json::object values;
    for (std::size_t i = 0; i < record.params.size(); ++i)
        if (slot->has(i))
            values[record.params[i].db_name] =
                record.params[i].flags & 1 ? json::value(slot->doubleAt(i)) : slot->longAt(i);
    fields["values"] = values;
    return fields;
}

json::object expectedChange(const sample::ClassRecord& record, const sample::Security& security,
                            const sample::Record& change) {
    json::object values;
    std::size_t longs = 0;
    std::size_t doubles = 0;
    for (std::size_t i = 0; i < record.params.size(); ++i) {
        if (i / 8 >= change.mask.size() || !(change.mask[i / 8] & 1 << i % 8))
            continue;
        values[record.params[i].db_name] = record.params[i].flags & 1
                                               ? json::value(change.doubles.at(doubles++))
                                               : change.longs.at(longs++);
    }
    const std::string mask(change.mask.begin(), change.mask.end());
    return {{"dataField1", change.dataField1},
            {"dataField2", change.dataField2},
            {"dataField3", change.dataField3},
            {"class_code", text(record.classCode)},
            {"sec_code", text(security.sec_code)},
            {"sec_id", change.sec_id},
            {"mask", json::string(hexOf(mask))},
            {"maskSize", change.mask.size()},
            {"longCount", change.longs.size()},
            {"doubleCount", change.doubles.size()},
            {"longs", json::value_from(change.longs)},
            {"doubles", json::value_from(change.doubles)},
            {"values", values}};
}

json::object expectedAlert(const sample::Alert& alert, std::size_t number) {
    json::object fields;
    fields["number"] = number;
    fields["send_type"] = alert.send_type > 6 ? 7 : alert.send_type;
    fields["flags"] = static_cast<std::uint32_t>(alert.flags);
    fields["class_code"] = alert.class_codes.empty() ? nullptr : text(alert.class_codes[0]);
    fields["data_id"] = json::string(hexOf(alert.data_id));
    fields["data_id_size"] = alert.data_id.size();
    fields["body"] = text(alert.body);
    fields["body_hex"] = json::string(hexOf(alert.body));
    fields["body_size"] = alert.body.size();
    fields["user_ids"] = json::value_from(alert.user_ids);
    fields["user_id_size"] = alert.user_ids.size();
#define TEXT(field) fields[#field] = text(alert.field)
#define NUMBER(field) fields[#field] = alert.field
    TEXT(firm_id);
    TEXT(client_code);
    NUMBER(type);
    NUMBER(perms);
    NUMBER(perms_ex);
    NUMBER(perms_ex2);
#undef TEXT
#undef NUMBER
    return fields;
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

namespace {

// The parser rounds the last place of a number its own way; the digits have a test of their own.
void expectSameValue(const json::value& shown, const json::value& expected,
                     const std::string& name) {
    if (expected.is_double() && shown.is_number()) {
        EXPECT_DOUBLE_EQ(shown.to_number<double>(), expected.as_double()) << name;
    } else if (expected.is_object() && shown.is_object()) {
        expectSameFields(shown.as_object(), expected.as_object());
    } else if (expected.is_array() && shown.is_array()) {
        ASSERT_EQ(shown.as_array().size(), expected.as_array().size()) << name;
        for (std::size_t i = 0; i < shown.as_array().size(); ++i)
            expectSameValue(shown.as_array()[i], expected.as_array()[i], name);
    } else {
        EXPECT_EQ(shown, expected) << name;
    }
}

} // namespace

void expectSameFields(const json::object& shown, const json::object& expected) {
    EXPECT_EQ(shown.size(), expected.size());
    for (const auto& field : expected) {
        const json::value* value = shown.if_contains(field.key());
        ASSERT_NE(value, nullptr) << field.key();
        expectSameValue(*value, field.value(), std::string(field.key()));
    }
}

} // namespace toolTest
