/*
 * Fields of a security, as the class file holds them: dates, prices, scales and flags are passed on
 * without being interpreted.
 *
 * A null security yields 0, 0.0 or a null pointer and the last error "Invalid argument: " with the
 * getter's name. Text is single-byte and lives as long as its class; it must not be changed or
 * freed.  The number behind a text getter is the size of the field with its terminator; a damaged
 * file may lack the terminator, so a careful caller reads no further than that.
 *
 * Threads: getters only read, except for the last error that a null pointer leaves.
 */
#ifndef VDREADER_SECURITIES_H
#define VDREADER_SECURITIES_H

#include "vdreader/readers.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Text fields. */
VDREADER_API const char* get_sSecurityDesc_CCY1(const sSecurityDesc* security);            /* 13 */
VDREADER_API const char* get_sSecurityDesc_CCY2(const sSecurityDesc* security);            /* 13 */
VDREADER_API const char* get_sSecurityDesc_CFI(const sSecurityDesc* security);             /* 7 */
VDREADER_API const char* get_sSecurityDesc_ISIN(const sSecurityDesc* security);            /* 13 */
VDREADER_API const char* get_sSecurityDesc_base_class_code(const sSecurityDesc* security); /* 13 */
VDREADER_API const char* get_sSecurityDesc_base_sec_code(const sSecurityDesc* security);   /* 13 */
VDREADER_API const char* get_sSecurityDesc_benchmark(const sSecurityDesc* security);       /* 13 */
VDREADER_API const char* get_sSecurityDesc_bsid(const sSecurityDesc* security);            /* 21 */
VDREADER_API const char* get_sSecurityDesc_cusip_code(const sSecurityDesc* security);      /* 10 */
VDREADER_API const char* get_sSecurityDesc_face_unit(const sSecurityDesc* security);       /* 13 */
VDREADER_API const char* get_sSecurityDesc_reg_number(const sSecurityDesc* security);      /* 31 */
VDREADER_API const char* get_sSecurityDesc_ric_code(const sSecurityDesc* security);        /* 33 */
VDREADER_API const char* get_sSecurityDesc_sec_code(const sSecurityDesc* security);        /* 13 */
VDREADER_API const char* get_sSecurityDesc_sedol_code(const sSecurityDesc* security);      /* 8 */
VDREADER_API const char* get_sSecurityDesc_settleCode(const sSecurityDesc* security);      /* 13 */
VDREADER_API const char* get_sSecurityDesc_step_price_currency(
    const sSecurityDesc* security);                                                        /* 13 */
VDREADER_API const char* get_sSecurityDesc_stock_code(const sSecurityDesc* security);      /* 13 */
VDREADER_API const char* get_sSecurityDesc_stock_name(const sSecurityDesc* security);      /* 33 */
VDREADER_API const char* get_sSecurityDesc_tickSizeTableId(const sSecurityDesc* security); /* 65 */
VDREADER_API const char* get_sSecurityDesc_trade_currency(const sSecurityDesc* security);  /* 13 */

/* 16-bit fields, zero-extended. */
VDREADER_API uint32_t get_sSecurityDesc_couponperiod(const sSecurityDesc* security);
VDREADER_API uint32_t get_sSecurityDesc_list_level(const sSecurityDesc* security);
VDREADER_API uint32_t get_sSecurityDesc_qtyScale(const sSecurityDesc* security);
VDREADER_API uint32_t get_sSecurityDesc_qty_scale_CCY1(const sSecurityDesc* security);
VDREADER_API uint32_t get_sSecurityDesc_qty_scale_CCY2(const sSecurityDesc* security);
VDREADER_API uint32_t get_sSecurityDesc_scale(const sSecurityDesc* security);
VDREADER_API uint32_t get_sSecurityDesc_sec_subtype(const sSecurityDesc* security);
VDREADER_API uint32_t get_sSecurityDesc_sec_type(const sSecurityDesc* security);

/* 16-bit field, sign-extended. */
VDREADER_API int32_t get_sSecurityDesc_accruedIntScale(const sSecurityDesc* security);

/* 32-bit fields. */
VDREADER_API uint32_t get_sSecurityDesc_buybackdate(const sSecurityDesc* security);
VDREADER_API uint32_t get_sSecurityDesc_closeval(const sSecurityDesc* security);
VDREADER_API uint32_t get_sSecurityDesc_expdate(const sSecurityDesc* security);
VDREADER_API uint32_t get_sSecurityDesc_lot_size(const sSecurityDesc* security);
VDREADER_API uint32_t get_sSecurityDesc_mat_date(const sSecurityDesc* security);
VDREADER_API uint32_t get_sSecurityDesc_min_step(const sSecurityDesc* security);
VDREADER_API uint32_t get_sSecurityDesc_nextcoupon(const sSecurityDesc* security);
VDREADER_API uint32_t get_sSecurityDesc_settleDate(const sSecurityDesc* security);
VDREADER_API uint32_t get_sSecurityDesc_specific_flags(const sSecurityDesc* security);

/* 64-bit fields. */
VDREADER_API int64_t get_sSecurityDesc_accruedint(const sSecurityDesc* security);
VDREADER_API int64_t get_sSecurityDesc_buybackprice(const sSecurityDesc* security);
VDREADER_API int64_t get_sSecurityDesc_option_strike(const sSecurityDesc* security);

/* Floating fields. */
VDREADER_API double get_sSecurityDesc_couponvalue(const sSecurityDesc* security);
VDREADER_API double get_sSecurityDesc_face_value(const sSecurityDesc* security);
VDREADER_API double get_sSecurityDesc_yieldatprevwaprice(const sSecurityDesc* security);

/*
 * Names in a language of the writer's numbering: the first entry of that language.  Null if there
 * is none, which is no failure; an entry with an empty text gives an empty string.
 */
VDREADER_API const char* get_sSecurityDesc_short_name(const sSecurityDesc* security, uint16_t lang);
VDREADER_API const char* get_sSecurityDesc_long_name(const sSecurityDesc* security, uint16_t lang);

#ifdef __cplusplus
}
#endif

#endif
