// The regular getters of classes, parameters and securities, a row each: export, result, record,
// field.
//
// A getter with any oddity is a function of its own in classGetters.cpp.

#pragma once

// clang-format off
#define VDREADER_CLASS_GETTERS(ROW) \
    ROW(get_sClassParUnitedDesc_class_code, const char*, sClassParUnitedDesc, desc.classCode) \
    ROW(get_sClassParUnitedDesc_fh, const char*, sClassParUnitedDesc, desc.fh) \
    ROW(get_sClassParUnitedDesc_fl, const char*, sClassParUnitedDesc, desc.fl) \
    ROW(get_sClassParUnitedDesc_ch, const char*, sClassParUnitedDesc, desc.ch) \
    ROW(get_sClassParUnitedDesc_cl, const char*, sClassParUnitedDesc, desc.cl)

#define VDREADER_PARAM_GETTERS(ROW) \
    ROW(get_sParDesc_par_id, uint32_t, sParDesc, par_id) \
    ROW(get_sParDesc_flags, uint32_t, sParDesc, flags) \
    ROW(get_sParDesc_scale, uint32_t, sParDesc, scale) \
    ROW(get_sParDesc_par_info, uint32_t, sParDesc, par_info) \
    ROW(get_sParDesc_par_info_ex, uint32_t, sParDesc, par_info_ex)

#define VDREADER_SECURITY_GETTERS(ROW) \
    ROW(get_sSecurityDesc_CCY1, const char*, sSecurityDesc, CCY1) \
    ROW(get_sSecurityDesc_CCY2, const char*, sSecurityDesc, CCY2) \
    ROW(get_sSecurityDesc_CFI, const char*, sSecurityDesc, CFI) \
    ROW(get_sSecurityDesc_ISIN, const char*, sSecurityDesc, ISIN) \
    ROW(get_sSecurityDesc_base_class_code, const char*, sSecurityDesc, base_class_code) \
    ROW(get_sSecurityDesc_base_sec_code, const char*, sSecurityDesc, base_sec_code) \
    ROW(get_sSecurityDesc_benchmark, const char*, sSecurityDesc, benchmark) \
    ROW(get_sSecurityDesc_bsid, const char*, sSecurityDesc, bsid) \
    ROW(get_sSecurityDesc_cusip_code, const char*, sSecurityDesc, cusip_code) \
    ROW(get_sSecurityDesc_face_unit, const char*, sSecurityDesc, face_unit) \
    ROW(get_sSecurityDesc_reg_number, const char*, sSecurityDesc, reg_number) \
    ROW(get_sSecurityDesc_ric_code, const char*, sSecurityDesc, ric_code) \
    ROW(get_sSecurityDesc_sec_code, const char*, sSecurityDesc, sec_code) \
    ROW(get_sSecurityDesc_sedol_code, const char*, sSecurityDesc, sedol_code) \
    ROW(get_sSecurityDesc_settleCode, const char*, sSecurityDesc, settleCode) \
    ROW(get_sSecurityDesc_step_price_currency, const char*, sSecurityDesc, step_price_currency) \
    ROW(get_sSecurityDesc_stock_code, const char*, sSecurityDesc, stock_code) \
    ROW(get_sSecurityDesc_stock_name, const char*, sSecurityDesc, stock_name) \
    ROW(get_sSecurityDesc_tickSizeTableId, const char*, sSecurityDesc, tickSizeTableId) \
    ROW(get_sSecurityDesc_trade_currency, const char*, sSecurityDesc, trade_currency) \
    ROW(get_sSecurityDesc_couponperiod, uint32_t, sSecurityDesc, couponperiod) \
    ROW(get_sSecurityDesc_list_level, uint32_t, sSecurityDesc, list_level) \
    ROW(get_sSecurityDesc_qtyScale, uint32_t, sSecurityDesc, qtyScale) \
    ROW(get_sSecurityDesc_qty_scale_CCY1, uint32_t, sSecurityDesc, qty_scale_CCY1) \
    ROW(get_sSecurityDesc_qty_scale_CCY2, uint32_t, sSecurityDesc, qty_scale_CCY2) \
    ROW(get_sSecurityDesc_scale, uint32_t, sSecurityDesc, scale) \
    ROW(get_sSecurityDesc_sec_subtype, uint32_t, sSecurityDesc, sec_subtype) \
    ROW(get_sSecurityDesc_sec_type, uint32_t, sSecurityDesc, sec_type) \
    ROW(get_sSecurityDesc_accruedIntScale, int32_t, sSecurityDesc, accruedIntScale) \
    ROW(get_sSecurityDesc_buybackdate, uint32_t, sSecurityDesc, buybackdate) \
    ROW(get_sSecurityDesc_closeval, uint32_t, sSecurityDesc, closeval) \
    ROW(get_sSecurityDesc_expdate, uint32_t, sSecurityDesc, expdate) \
    ROW(get_sSecurityDesc_lot_size, uint32_t, sSecurityDesc, lot_size) \
    ROW(get_sSecurityDesc_mat_date, uint32_t, sSecurityDesc, mat_date) \
    ROW(get_sSecurityDesc_min_step, uint32_t, sSecurityDesc, min_step) \
    ROW(get_sSecurityDesc_nextcoupon, uint32_t, sSecurityDesc, nextcoupon) \
    ROW(get_sSecurityDesc_settleDate, uint32_t, sSecurityDesc, settleDate) \
    ROW(get_sSecurityDesc_specific_flags, uint32_t, sSecurityDesc, specific_flags) \
    ROW(get_sSecurityDesc_accruedint, int64_t, sSecurityDesc, accruedint) \
    ROW(get_sSecurityDesc_buybackprice, int64_t, sSecurityDesc, buybackprice) \
    ROW(get_sSecurityDesc_option_strike, int64_t, sSecurityDesc, option_strike) \
    ROW(get_sSecurityDesc_couponvalue, double, sSecurityDesc, couponvalue) \
    ROW(get_sSecurityDesc_face_value, double, sSecurityDesc, face_value) \
    ROW(get_sSecurityDesc_yieldatprevwaprice, double, sSecurityDesc, yieldatprevwaprice)

// clang-format on
