// The stored form of a record of flimit.vd.  docs/formats/flimit.md tells the format.

#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#pragma pack(push, 1)
// Reserved bytes belong to the writer.
struct sFutLimit {
    char reserved0[8];
    char firmid[13];
    char trdaccid[13];
    std::uint16_t limit_type;
    char reserved36[4];
    double liquidity_coeff;
    double cbp_prev_limit;
    double cbplimit;
    double cbplused;
    double cbplplanned;
    double varmargin;
    double accruedint;
    double kgo;
    char reserved104[8];
    double cbplused_for_orders;
    double cbplused_for_positions;
    double options_premium;
    double net_options_value;
    double ts_comission;
    char currcode[13];
    char reserved165[3];
    double real_varmargin;
    char reserved176[4];
    std::uint32_t risk_level;
    double go_planned;
    double go_without_orders;
    double indicative_varmargin;
    char reserved208[8];
};
#pragma pack(pop)

static_assert(sizeof(sFutLimit) == 216);
static_assert(offsetof(sFutLimit, firmid) == 8);
static_assert(offsetof(sFutLimit, trdaccid) == 21);
static_assert(offsetof(sFutLimit, limit_type) == 34);
static_assert(offsetof(sFutLimit, liquidity_coeff) == 40);
static_assert(offsetof(sFutLimit, cbp_prev_limit) == 48);
static_assert(offsetof(sFutLimit, cbplimit) == 56);
static_assert(offsetof(sFutLimit, cbplused) == 64);
static_assert(offsetof(sFutLimit, cbplplanned) == 72);
static_assert(offsetof(sFutLimit, varmargin) == 80);
static_assert(offsetof(sFutLimit, accruedint) == 88);
static_assert(offsetof(sFutLimit, kgo) == 96);
static_assert(offsetof(sFutLimit, cbplused_for_orders) == 112);
static_assert(offsetof(sFutLimit, cbplused_for_positions) == 120);
static_assert(offsetof(sFutLimit, options_premium) == 128);
static_assert(offsetof(sFutLimit, net_options_value) == 136);
static_assert(offsetof(sFutLimit, ts_comission) == 144);
static_assert(offsetof(sFutLimit, currcode) == 152);
static_assert(offsetof(sFutLimit, real_varmargin) == 168);
static_assert(offsetof(sFutLimit, risk_level) == 180);
static_assert(offsetof(sFutLimit, go_planned) == 184);
static_assert(offsetof(sFutLimit, go_without_orders) == 192);
static_assert(offsetof(sFutLimit, indicative_varmargin) == 200);
static_assert(std::is_trivially_copyable_v<sFutLimit>);
