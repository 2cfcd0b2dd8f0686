// The stored form of a record of fclipos.vd.  docs/formats/fclipos.md tells the format.

#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#pragma pack(push, 1)
// Reserved bytes belong to the writer.
struct sFutPosition {
    char reserved0[8];
    char firmid[13];
    char trdaccid[13];
    char seccode[13];
    char reserved47[5];
    std::int32_t start_buy;
    std::int32_t start_sell;
    std::int32_t start_net;
    std::int32_t today_buy;
    std::int32_t today_sell;
    std::int32_t total_net;
    std::int32_t open_buys;
    std::int32_t open_sells;
    char reserved84[12];
    double cbplplanned;
    double varmargin;
    char reserved112[8];
    double avrposnprice;
    double positionvalue;
    double total_varmargin;
    double real_varmargin;
    char reserved152[8];
    double premium;
};
#pragma pack(pop)

static_assert(sizeof(sFutPosition) == 168);
static_assert(offsetof(sFutPosition, firmid) == 8);
static_assert(offsetof(sFutPosition, trdaccid) == 21);
static_assert(offsetof(sFutPosition, seccode) == 34);
static_assert(offsetof(sFutPosition, start_buy) == 52);
static_assert(offsetof(sFutPosition, start_sell) == 56);
static_assert(offsetof(sFutPosition, start_net) == 60);
static_assert(offsetof(sFutPosition, today_buy) == 64);
static_assert(offsetof(sFutPosition, today_sell) == 68);
static_assert(offsetof(sFutPosition, total_net) == 72);
static_assert(offsetof(sFutPosition, open_buys) == 76);
static_assert(offsetof(sFutPosition, open_sells) == 80);
static_assert(offsetof(sFutPosition, cbplplanned) == 96);
static_assert(offsetof(sFutPosition, varmargin) == 104);
static_assert(offsetof(sFutPosition, avrposnprice) == 120);
static_assert(offsetof(sFutPosition, positionvalue) == 128);
static_assert(offsetof(sFutPosition, total_varmargin) == 136);
static_assert(offsetof(sFutPosition, real_varmargin) == 144);
static_assert(offsetof(sFutPosition, premium) == 160);
static_assert(std::is_trivially_copyable_v<sFutPosition>);
