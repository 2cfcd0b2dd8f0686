// The getters of futures positions, a row each: export, result, record, field.

#pragma once

// clang-format off
#define VDREADER_FUTPOSITION_GETTERS(ROW) \
    ROW(get_sFutPosition_avrposnprice, double, sFutPosition, avrposnprice) \
    ROW(get_sFutPosition_cbplplanned, double, sFutPosition, cbplplanned) \
    ROW(get_sFutPosition_positionvalue, double, sFutPosition, positionvalue) \
    ROW(get_sFutPosition_premium, double, sFutPosition, premium) \
    ROW(get_sFutPosition_real_varmargin, double, sFutPosition, real_varmargin) \
    ROW(get_sFutPosition_total_varmargin, double, sFutPosition, total_varmargin) \
    ROW(get_sFutPosition_varmargin, double, sFutPosition, varmargin) \
    ROW(get_sFutPosition_firmid, const char*, sFutPosition, firmid) \
    ROW(get_sFutPosition_seccode, const char*, sFutPosition, seccode) \
    ROW(get_sFutPosition_trdaccid, const char*, sFutPosition, trdaccid) \
    ROW(get_sFutPosition_open_buys, int64_t, sFutPosition, open_buys) \
    ROW(get_sFutPosition_open_sells, int64_t, sFutPosition, open_sells) \
    ROW(get_sFutPosition_start_buy, int64_t, sFutPosition, start_buy) \
    ROW(get_sFutPosition_start_net, int64_t, sFutPosition, start_net) \
    ROW(get_sFutPosition_start_sell, int64_t, sFutPosition, start_sell) \
    ROW(get_sFutPosition_today_buy, int64_t, sFutPosition, today_buy) \
    ROW(get_sFutPosition_today_sell, int64_t, sFutPosition, today_sell) \
    ROW(get_sFutPosition_total_net, int64_t, sFutPosition, total_net)

// clang-format on
