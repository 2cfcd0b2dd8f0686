// Descriptors read field by field, in stored order, as the peers of the class load do it.
//
// `In` has get(value), which reads a value or array at its exact size, and text(string), which
// reads a counted string.

#pragma once

#include "vdreader/descriptors.hpp"

namespace bench {

template <class In>
void readParam(In& in, PARAMS_DESC& param) {
    in.get(param.par_id);
    in.get(param.flags);
    in.get(param.scale);
    in.get(param.db_name);
    std::uint32_t count = 0;
    in.get(count);
    param.names.resize(count);
    for (PARAM_NAME& name : param.names) {
        in.get(name.lang);
        in.text(name.long_name);
        in.text(name.short_name);
        in.text(name.enum_desc);
    }
    in.get(param.par_info);
    in.get(param.par_info_ex);
}

template <class In, class... Values>
void getAll(In& in, Values&... values) {
    (in.get(values), ...);
}

template <class In>
void readSecurity(In& in, SECURITY_DESC& s) {
    std::uint32_t count = 0;
    getAll(in, s.sec_id, s.sec_code, s.ISIN, s.reg_number, s.CFI, count);
    s.names.resize(count);
    for (SECURITY_NAME& name : s.names) {
        in.get(name.lang);
        in.text(name.long_name);
        in.text(name.short_name);
    }
    getAll(in, s.base_sec_code, s.base_class_code, s.sec_type, s.sec_subtype, s.list_level,
           s.specific_flags, s.min_step, s.face_value, s.face_unit, s.scale, s.mat_date, s.lot_size,
           s.unnamedByte1, s.unnamedValue1, s.trade_currency, s.option_strike, s.CCY1, s.CCY2,
           s.couponvalue, s.couponperiod, s.nextcoupon, s.buybackdate, s.buybackprice,
           s.yieldatprevwaprice, s.step_price_currency, s.closeval, count);
    s.subDescs.resize(count);
    for (SECURITY_SUBDESC& entry : s.subDescs)
        getAll(in, entry.code1, entry.code2, entry.code3, entry.value, entry.kind, entry.info);
    getAll(in, s.stock_code, s.sedol_code, s.ric_code, s.cusip_code, s.stock_name, s.bsid,
           s.qtyScale, s.qty_scale_CCY1, s.qty_scale_CCY2, s.unnamedValue2, s.expdate, s.settleCode,
           s.tickSizeTableId, s.settleDate, s.accruedIntScale, s.accruedint, s.unnamedValue3,
           s.unnamedByte3, s.benchmark);
}

} // namespace bench
