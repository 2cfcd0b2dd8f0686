// The getters of futures limits, a row each: export, result, record, field.

#pragma once

// clang-format off
#define VDREADER_FUTLIMIT_GETTERS(ROW) \
    ROW(get_sFutLimit_accruedint, double, sFutLimit, accruedint) \
    ROW(get_sFutLimit_cbp_prev_limit, double, sFutLimit, cbp_prev_limit) \
    ROW(get_sFutLimit_cbplimit, double, sFutLimit, cbplimit) \
    ROW(get_sFutLimit_cbplplanned, double, sFutLimit, cbplplanned) \
    ROW(get_sFutLimit_cbplused, double, sFutLimit, cbplused) \
    ROW(get_sFutLimit_cbplused_for_orders, double, sFutLimit, cbplused_for_orders) \
    ROW(get_sFutLimit_cbplused_for_positions, double, sFutLimit, cbplused_for_positions) \
    ROW(get_sFutLimit_go_planned, double, sFutLimit, go_planned) \
    ROW(get_sFutLimit_go_without_orders, double, sFutLimit, go_without_orders) \
    ROW(get_sFutLimit_indicative_varmargin, double, sFutLimit, indicative_varmargin) \
    ROW(get_sFutLimit_kgo, double, sFutLimit, kgo) \
    ROW(get_sFutLimit_liquidity_coeff, double, sFutLimit, liquidity_coeff) \
    ROW(get_sFutLimit_net_options_value, double, sFutLimit, net_options_value) \
    ROW(get_sFutLimit_options_premium, double, sFutLimit, options_premium) \
    ROW(get_sFutLimit_real_varmargin, double, sFutLimit, real_varmargin) \
    ROW(get_sFutLimit_ts_comission, double, sFutLimit, ts_comission) \
    ROW(get_sFutLimit_varmargin, double, sFutLimit, varmargin) \
    ROW(get_sFutLimit_currcode, const char*, sFutLimit, currcode) \
    ROW(get_sFutLimit_firmid, const char*, sFutLimit, firmid) \
    ROW(get_sFutLimit_trdaccid, const char*, sFutLimit, trdaccid) \
    ROW(get_sFutLimit_limit_type, uint32_t, sFutLimit, limit_type) \
    ROW(get_sFutLimit_risk_level, uint32_t, sFutLimit, risk_level)

// clang-format on
