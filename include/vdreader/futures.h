/*
 * Fields of the futures limits and positions.
 *
 * No getter tests its pointer and none touches the last error: a null record faults.  Text points
 * into the record and is good only during the callback; the size of each text field, terminator
 * included, is 13 bytes, and a damaged file may lack the terminator.
 *
 * Threads: getters only read the record that they are given.
 */
#ifndef VDREADER_FUTURES_H
#define VDREADER_FUTURES_H

#include "vdreader/readers.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- futures limits ---- */

VDREADER_API double get_sFutLimit_accruedint(const sFutLimit* limit);
VDREADER_API double get_sFutLimit_cbp_prev_limit(const sFutLimit* limit);
VDREADER_API double get_sFutLimit_cbplimit(const sFutLimit* limit);
VDREADER_API double get_sFutLimit_cbplplanned(const sFutLimit* limit);
VDREADER_API double get_sFutLimit_cbplused(const sFutLimit* limit);
VDREADER_API double get_sFutLimit_cbplused_for_orders(const sFutLimit* limit);
VDREADER_API double get_sFutLimit_cbplused_for_positions(const sFutLimit* limit);
VDREADER_API double get_sFutLimit_go_planned(const sFutLimit* limit);
VDREADER_API double get_sFutLimit_go_without_orders(const sFutLimit* limit);
VDREADER_API double get_sFutLimit_indicative_varmargin(const sFutLimit* limit);
VDREADER_API double get_sFutLimit_kgo(const sFutLimit* limit);
VDREADER_API double get_sFutLimit_liquidity_coeff(const sFutLimit* limit);
VDREADER_API double get_sFutLimit_net_options_value(const sFutLimit* limit);
VDREADER_API double get_sFutLimit_options_premium(const sFutLimit* limit);
VDREADER_API double get_sFutLimit_real_varmargin(const sFutLimit* limit);
VDREADER_API double get_sFutLimit_ts_comission(const sFutLimit* limit);
VDREADER_API double get_sFutLimit_varmargin(const sFutLimit* limit);

VDREADER_API const char* get_sFutLimit_currcode(const sFutLimit* limit);
VDREADER_API const char* get_sFutLimit_firmid(const sFutLimit* limit);
VDREADER_API const char* get_sFutLimit_trdaccid(const sFutLimit* limit);

/* A 16-bit field, zero-extended. */
VDREADER_API uint32_t get_sFutLimit_limit_type(const sFutLimit* limit);
VDREADER_API uint32_t get_sFutLimit_risk_level(const sFutLimit* limit);

/* ---- futures positions ---- */

VDREADER_API double get_sFutPosition_avrposnprice(const sFutPosition* position);
VDREADER_API double get_sFutPosition_cbplplanned(const sFutPosition* position);
VDREADER_API double get_sFutPosition_positionvalue(const sFutPosition* position);
VDREADER_API double get_sFutPosition_premium(const sFutPosition* position);
VDREADER_API double get_sFutPosition_real_varmargin(const sFutPosition* position);
VDREADER_API double get_sFutPosition_total_varmargin(const sFutPosition* position);
VDREADER_API double get_sFutPosition_varmargin(const sFutPosition* position);

VDREADER_API const char* get_sFutPosition_firmid(const sFutPosition* position);
VDREADER_API const char* get_sFutPosition_seccode(const sFutPosition* position);
VDREADER_API const char* get_sFutPosition_trdaccid(const sFutPosition* position);

/* 32-bit fields, sign-extended. */
VDREADER_API int64_t get_sFutPosition_open_buys(const sFutPosition* position);
VDREADER_API int64_t get_sFutPosition_open_sells(const sFutPosition* position);
VDREADER_API int64_t get_sFutPosition_start_buy(const sFutPosition* position);
VDREADER_API int64_t get_sFutPosition_start_net(const sFutPosition* position);
VDREADER_API int64_t get_sFutPosition_start_sell(const sFutPosition* position);
VDREADER_API int64_t get_sFutPosition_today_buy(const sFutPosition* position);
VDREADER_API int64_t get_sFutPosition_today_sell(const sFutPosition* position);
VDREADER_API int64_t get_sFutPosition_total_net(const sFutPosition* position);

#ifdef __cplusplus
}
#endif

#endif
