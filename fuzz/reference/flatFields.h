// The fields of the futures records by their offsets in the file, against the getters.

#pragma once

#include <cstring>
#include <string>

#include "vdreader/futures.h"

namespace reference {

inline constexpr std::size_t kLimitSize = 216;
inline constexpr std::size_t kPositionSize = 168;

inline std::size_t sizeOf(const sFutLimit*) {
    return kLimitSize;
}
inline std::size_t sizeOf(const sFutPosition*) {
    return kPositionSize;
}

// Compares a getter's result with the stored form of the field; doubles by their bits.
template <class Stored, class Result>
bool sameNumber(Result result, const std::string& record, std::size_t offset) {
    Stored stored;
    std::memcpy(&stored, record.data() + offset, sizeof stored);
    const auto wanted = static_cast<Result>(stored);
    return std::memcmp(&wanted, &result, sizeof result) == 0;
}

#define VDREADER_FLAT_NUMBER(record, field, Stored, offset)             \
  if (!sameNumber<Stored>(get_##record##_##field(from), bytes, offset)) \
  return "get_" #record "_" #field
#define VDREADER_FLAT_TEXT(record, field, offset)                                  \
  if (std::memcmp(get_##record##_##field(from), bytes.data() + (offset), 13) != 0) \
  return "get_" #record "_" #field

// Empty, or the name of the first getter that differs from the stored bytes.
inline std::string fieldDifference(const sFutLimit* from, const std::string& bytes) {
    VDREADER_FLAT_TEXT(sFutLimit, firmid, 8);
    VDREADER_FLAT_TEXT(sFutLimit, trdaccid, 21);
    VDREADER_FLAT_NUMBER(sFutLimit, limit_type, std::uint16_t, 34);
    VDREADER_FLAT_NUMBER(sFutLimit, liquidity_coeff, double, 40);
    VDREADER_FLAT_NUMBER(sFutLimit, cbp_prev_limit, double, 48);
    VDREADER_FLAT_NUMBER(sFutLimit, cbplimit, double, 56);
    VDREADER_FLAT_NUMBER(sFutLimit, cbplused, double, 64);
    VDREADER_FLAT_NUMBER(sFutLimit, cbplplanned, double, 72);
    VDREADER_FLAT_NUMBER(sFutLimit, varmargin, double, 80);
    VDREADER_FLAT_NUMBER(sFutLimit, accruedint, double, 88);
    VDREADER_FLAT_NUMBER(sFutLimit, kgo, double, 96);
    VDREADER_FLAT_NUMBER(sFutLimit, cbplused_for_orders, double, 112);
    VDREADER_FLAT_NUMBER(sFutLimit, cbplused_for_positions, double, 120);
    VDREADER_FLAT_NUMBER(sFutLimit, options_premium, double, 128);
    VDREADER_FLAT_NUMBER(sFutLimit, net_options_value, double, 136);
    VDREADER_FLAT_NUMBER(sFutLimit, ts_comission, double, 144);
    VDREADER_FLAT_TEXT(sFutLimit, currcode, 152);
    VDREADER_FLAT_NUMBER(sFutLimit, real_varmargin, double, 168);
    VDREADER_FLAT_NUMBER(sFutLimit, risk_level, std::uint32_t, 180);
    VDREADER_FLAT_NUMBER(sFutLimit, go_planned, double, 184);
    VDREADER_FLAT_NUMBER(sFutLimit, go_without_orders, double, 192);
    VDREADER_FLAT_NUMBER(sFutLimit, indicative_varmargin, double, 200);
    return {};
}

inline std::string fieldDifference(const sFutPosition* from, const std::string& bytes) {
    VDREADER_FLAT_TEXT(sFutPosition, firmid, 8);
    VDREADER_FLAT_TEXT(sFutPosition, trdaccid, 21);
    VDREADER_FLAT_TEXT(sFutPosition, seccode, 34);
    VDREADER_FLAT_NUMBER(sFutPosition, start_buy, std::int32_t, 52);
    VDREADER_FLAT_NUMBER(sFutPosition, start_sell, std::int32_t, 56);
    VDREADER_FLAT_NUMBER(sFutPosition, start_net, std::int32_t, 60);
    VDREADER_FLAT_NUMBER(sFutPosition, today_buy, std::int32_t, 64);
    VDREADER_FLAT_NUMBER(sFutPosition, today_sell, std::int32_t, 68);
    VDREADER_FLAT_NUMBER(sFutPosition, total_net, std::int32_t, 72);
    VDREADER_FLAT_NUMBER(sFutPosition, open_buys, std::int32_t, 76);
    VDREADER_FLAT_NUMBER(sFutPosition, open_sells, std::int32_t, 80);
    VDREADER_FLAT_NUMBER(sFutPosition, cbplplanned, double, 96);
    VDREADER_FLAT_NUMBER(sFutPosition, varmargin, double, 104);
    VDREADER_FLAT_NUMBER(sFutPosition, avrposnprice, double, 120);
    VDREADER_FLAT_NUMBER(sFutPosition, positionvalue, double, 128);
    VDREADER_FLAT_NUMBER(sFutPosition, total_varmargin, double, 136);
    VDREADER_FLAT_NUMBER(sFutPosition, real_varmargin, double, 144);
    VDREADER_FLAT_NUMBER(sFutPosition, premium, double, 160);
    return {};
}

#undef VDREADER_FLAT_NUMBER
#undef VDREADER_FLAT_TEXT

} // namespace reference
