// One row a field: text fields with the size that the header tells, whole numbers, floating ones.
// The rows of a kind that a table shows come in a sensible order; the rest follows by name.

#include "vdcat/fields.h"

#include "support/program.h"

namespace vdcat {

namespace {

constexpr std::size_t kCodeSize = 13;
constexpr std::size_t kClassTextSize = 257;
constexpr bool kShown = true;
constexpr bool kHidden = false;

template <typename Number>
Value whole(Number number) {
    return static_cast<std::int64_t>(number);
}

// The three forms of a row, for the record `from` of a row and the family of getters.
#define TEXT(Row, from, family, field, size, shown)                                               \
  {                                                                                               \
#    field, false, shown,                                                                         \
        [](const Row& row) -> Value { return fieldText(get_##family##_##field(row.from), size); } \
  }
#define WHOLE(Row, from, family, field, shown)                                          \
  {                                                                                     \
#    field, true, shown,                                                                \
        [](const Row& row) -> Value { return whole(get_##family##_##field(row.from)); } \
  }
#define FLOATING(Row, from, family, field, shown)                                                 \
  {                                                                                               \
#    field, true, shown, [](const Row& row) -> Value { return get_##family##_##field(row.from); } \
  }
#define NAMED(Row, from, family, field, shown)                                          \
  {                                                                                     \
#    field, false, shown,                                                               \
        [](const Row& row)                                                              \
             -> Value { return plainText(get_##family##_##field(row.from, row.lang)); } \
  }

const Field<InfoRow> kInfoFields[] = {
    {"kind", false, kShown, [](const InfoRow& row) -> Value { return plainText(row.kind); }},
    {"state", false, kShown,
     [](const InfoRow& row) -> Value { return plainText(row.ready ? "ready" : "failed"); }},
    {"count", true, kShown, [](const InfoRow& row) -> Value { return row.count; }},
    {"error", false, kShown,
     [](const InfoRow& row) -> Value {
         return row.ready ? Value{} : Value{std::string_view(row.error)};
     }},
};

#define CLASS_TEXT(field, size, shown) \
  TEXT(ClassRow, classDesc, sClassParUnitedDesc, field, size, shown)

const Field<ClassRow> kClassFields[] = {
    CLASS_TEXT(class_code, kCodeSize, kShown),
    {"params", true, kShown,
     [](const ClassRow& row) -> Value { return paramCount(row.classDesc); }},
    {"securities", true, kShown,
     [](const ClassRow& row) -> Value {
         const auto found = row.securityCounts->find(row.classDesc);
         return found == row.securityCounts->end() ? std::int64_t{0} : found->second;
     }},
    CLASS_TEXT(ch, kClassTextSize, kShown),
    CLASS_TEXT(cl, kClassTextSize, kHidden),
    CLASS_TEXT(fh, kClassTextSize, kHidden),
    CLASS_TEXT(fl, kClassTextSize, kHidden),
};

#define SEC_TEXT(field, size, shown) TEXT(SecurityRow, security, sSecurityDesc, field, size, shown)
#define SEC_WHOLE(field, shown) WHOLE(SecurityRow, security, sSecurityDesc, field, shown)
#define SEC_FLOATING(field, shown) FLOATING(SecurityRow, security, sSecurityDesc, field, shown)
#define SEC_NAMED(field, shown) NAMED(SecurityRow, security, sSecurityDesc, field, shown)

const Field<SecurityRow> kSecurityFields[] = {
    TEXT(SecurityRow, classDesc, sClassParUnitedDesc, class_code, kCodeSize, kShown),
    SEC_TEXT(sec_code, kCodeSize, kShown),
    SEC_NAMED(short_name, kShown),
    SEC_TEXT(ISIN, kCodeSize, kShown),
    SEC_TEXT(trade_currency, kCodeSize, kShown),
    SEC_WHOLE(lot_size, kShown),
    SEC_WHOLE(scale, kShown),
    SEC_WHOLE(mat_date, kShown),
    SEC_FLOATING(face_value, kShown),
    SEC_NAMED(long_name, kHidden),
    SEC_TEXT(CCY1, kCodeSize, kHidden),
    SEC_TEXT(CCY2, kCodeSize, kHidden),
    SEC_TEXT(CFI, 7, kHidden),
    SEC_WHOLE(accruedIntScale, kHidden),
    SEC_WHOLE(accruedint, kHidden),
    SEC_TEXT(base_class_code, kCodeSize, kHidden),
    SEC_TEXT(base_sec_code, kCodeSize, kHidden),
    SEC_TEXT(benchmark, kCodeSize, kHidden),
    SEC_TEXT(bsid, 21, kHidden),
    SEC_WHOLE(buybackdate, kHidden),
    SEC_WHOLE(buybackprice, kHidden),
    SEC_WHOLE(closeval, kHidden),
    SEC_WHOLE(couponperiod, kHidden),
    SEC_FLOATING(couponvalue, kHidden),
    SEC_TEXT(cusip_code, 10, kHidden),
    SEC_WHOLE(expdate, kHidden),
    SEC_TEXT(face_unit, kCodeSize, kHidden),
    SEC_WHOLE(list_level, kHidden),
    SEC_WHOLE(min_step, kHidden),
    SEC_WHOLE(nextcoupon, kHidden),
    SEC_WHOLE(option_strike, kHidden),
    SEC_WHOLE(qtyScale, kHidden),
    SEC_WHOLE(qty_scale_CCY1, kHidden),
    SEC_WHOLE(qty_scale_CCY2, kHidden),
    SEC_TEXT(reg_number, 31, kHidden),
    SEC_TEXT(ric_code, 33, kHidden),
    SEC_WHOLE(sec_subtype, kHidden),
    SEC_WHOLE(sec_type, kHidden),
    SEC_TEXT(sedol_code, 8, kHidden),
    SEC_TEXT(settleCode, kCodeSize, kHidden),
    SEC_WHOLE(settleDate, kHidden),
    SEC_WHOLE(specific_flags, kHidden),
    SEC_TEXT(step_price_currency, kCodeSize, kHidden),
    SEC_TEXT(stock_code, kCodeSize, kHidden),
    SEC_TEXT(stock_name, 33, kHidden),
    SEC_TEXT(tickSizeTableId, 65, kHidden),
    SEC_FLOATING(yieldatprevwaprice, kHidden),
};

#define PAR_WHOLE(field, shown) WHOLE(ParamRow, param, sParDesc, field, shown)

const Field<ParamRow> kParamFields[] = {
    TEXT(ParamRow, classDesc, sClassParUnitedDesc, class_code, kCodeSize, kShown),
    {"index", true, kShown, [](const ParamRow& row) -> Value { return row.index; }},
    PAR_WHOLE(par_id, kShown),
    TEXT(ParamRow, param, sParDesc, db_name, 17, kShown),
    PAR_WHOLE(flags, kShown),
    PAR_WHOLE(scale, kShown),
    NAMED(ParamRow, param, sParDesc, short_name, kShown),
    NAMED(ParamRow, param, sParDesc, long_name, kShown),
    NAMED(ParamRow, param, sParDesc, enum, kHidden),
    PAR_WHOLE(par_info, kHidden),
    PAR_WHOLE(par_info_ex, kHidden),
};

#define LIM_TEXT(field, shown) TEXT(LimitRow, limit, sFutLimit, field, kCodeSize, shown)
#define LIM_WHOLE(field, shown) WHOLE(LimitRow, limit, sFutLimit, field, shown)
#define LIM_FLOATING(field, shown) FLOATING(LimitRow, limit, sFutLimit, field, shown)

const Field<LimitRow> kLimitFields[] = {
    LIM_TEXT(firmid, kShown),
    LIM_TEXT(trdaccid, kShown),
    LIM_WHOLE(limit_type, kShown),
    LIM_TEXT(currcode, kShown),
    LIM_FLOATING(cbplimit, kShown),
    LIM_FLOATING(cbplused, kShown),
    LIM_FLOATING(cbplplanned, kShown),
    LIM_FLOATING(varmargin, kShown),
    LIM_FLOATING(accruedint, kHidden),
    LIM_FLOATING(cbp_prev_limit, kHidden),
    LIM_FLOATING(cbplused_for_orders, kHidden),
    LIM_FLOATING(cbplused_for_positions, kHidden),
    LIM_FLOATING(go_planned, kHidden),
    LIM_FLOATING(go_without_orders, kHidden),
    LIM_FLOATING(indicative_varmargin, kHidden),
    LIM_FLOATING(kgo, kHidden),
    LIM_FLOATING(liquidity_coeff, kHidden),
    LIM_FLOATING(net_options_value, kHidden),
    LIM_FLOATING(options_premium, kHidden),
    LIM_FLOATING(real_varmargin, kHidden),
    LIM_WHOLE(risk_level, kHidden),
    LIM_FLOATING(ts_comission, kHidden),
};

#define POS_TEXT(field, shown) TEXT(PositionRow, position, sFutPosition, field, kCodeSize, shown)
#define POS_WHOLE(field, shown) WHOLE(PositionRow, position, sFutPosition, field, shown)
#define POS_FLOATING(field, shown) FLOATING(PositionRow, position, sFutPosition, field, shown)

const Field<PositionRow> kPositionFields[] = {
    POS_TEXT(firmid, kShown),
    POS_TEXT(trdaccid, kShown),
    POS_TEXT(seccode, kShown),
    POS_WHOLE(start_net, kShown),
    POS_WHOLE(today_buy, kShown),
    POS_WHOLE(today_sell, kShown),
    POS_WHOLE(total_net, kShown),
    POS_FLOATING(avrposnprice, kShown),
    POS_FLOATING(varmargin, kShown),
    POS_FLOATING(cbplplanned, kHidden),
    POS_WHOLE(open_buys, kHidden),
    POS_WHOLE(open_sells, kHidden),
    POS_FLOATING(positionvalue, kHidden),
    POS_FLOATING(premium, kHidden),
    POS_FLOATING(real_varmargin, kHidden),
    POS_WHOLE(start_buy, kHidden),
    POS_WHOLE(start_sell, kHidden),
    POS_FLOATING(total_varmargin, kHidden),
};

} // namespace

template <>
std::span<const Field<InfoRow>> fieldsOf() {
    return kInfoFields;
}
template <>
std::span<const Field<ClassRow>> fieldsOf() {
    return kClassFields;
}
template <>
std::span<const Field<SecurityRow>> fieldsOf() {
    return kSecurityFields;
}
template <>
std::span<const Field<ParamRow>> fieldsOf() {
    return kParamFields;
}
template <>
std::span<const Field<LimitRow>> fieldsOf() {
    return kLimitFields;
}
template <>
std::span<const Field<PositionRow>> fieldsOf() {
    return kPositionFields;
}

void refuseField(const std::string& name, Kind kind, const std::vector<std::string>& known) {
    std::string list;
    for (const std::string& field : known)
        list += (list.empty() ? "" : ", ") + field;
    throw tool::Failure(tool::kUsage,
                        "no field '" + name + "' in " + nameOf(kind) + "; there are " + list);
}

std::string_view classCodeOf(const sClassParUnitedDesc* classDesc) {
    return std::get<std::string_view>(
        fieldText(get_sClassParUnitedDesc_class_code(classDesc), kCodeSize));
}

std::string_view secCodeOf(const sSecurityDesc* security) {
    return std::get<std::string_view>(fieldText(get_sSecurityDesc_sec_code(security), kCodeSize));
}

std::string_view secCodeOf(const sFutPosition* position) {
    return std::get<std::string_view>(fieldText(get_sFutPosition_seccode(position), kCodeSize));
}

std::int64_t paramCount(sClassParUnitedDesc* classDesc) {
    std::int64_t count = 0;
    for (const sParDesc* param = get_sClassParUnitedDesc_par_desc(classDesc); param;
         param = get_sParDesc_next(classDesc))
        ++count;
    return count;
}

} // namespace vdcat
