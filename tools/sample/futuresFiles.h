// Writers of flimit.vd and fclipos.vd: flat arrays of records without a head, little-endian.
// Bytes without a field hold the pattern of fillByte, counted from the start of the record.

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace sample {

inline constexpr std::size_t kFutLimitSize = 216;
inline constexpr std::size_t kFutPositionSize = 168;

// Fields in stored order.
struct FutLimit {
    std::string firmid;   // 13
    std::string trdaccid; // 13
    std::uint16_t limit_type = 0;
    double liquidity_coeff = 0;
    double cbp_prev_limit = 0;
    double cbplimit = 0;
    double cbplused = 0;
    double cbplplanned = 0;
    double varmargin = 0;
    double accruedint = 0;
    double kgo = 0;
    double cbplused_for_orders = 0;
    double cbplused_for_positions = 0;
    double options_premium = 0;
    double net_options_value = 0;
    double ts_comission = 0;
    std::string currcode; // 13
    double real_varmargin = 0;
    std::uint32_t risk_level = 0;
    double go_planned = 0;
    double go_without_orders = 0;
    double indicative_varmargin = 0;
};

// Fields in stored order.
struct FutPosition {
    std::string firmid;   // 13
    std::string trdaccid; // 13
    std::string seccode;  // 13
    std::int32_t start_buy = 0;
    std::int32_t start_sell = 0;
    std::int32_t start_net = 0;
    std::int32_t today_buy = 0;
    std::int32_t today_sell = 0;
    std::int32_t total_net = 0;
    std::int32_t open_buys = 0;
    std::int32_t open_sells = 0;
    double cbplplanned = 0;
    double varmargin = 0;
    double avrposnprice = 0;
    double positionvalue = 0;
    double total_varmargin = 0;
    double real_varmargin = 0;
    double premium = 0;
};

std::string encodeFutLimits(const std::vector<FutLimit>& limits);
std::string encodeFutPositions(const std::vector<FutPosition>& positions);
void appendFutLimit(std::string& out, const FutLimit& limit);
void appendFutPosition(std::string& out, const FutPosition& position);

} // namespace sample
