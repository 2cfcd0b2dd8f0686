// Encoding of flimit.vd and fclipos.vd.

#include "sample/futuresFiles.h"

#include "sample/bytes.h"

namespace sample {

void appendFutLimit(std::string& out, const FutLimit& limit) {
    appendFill(out, 0, 8);
    appendText(out, limit.firmid, 13);
    appendText(out, limit.trdaccid, 13);
    appendNumber(out, limit.limit_type);
    appendFill(out, 36, 4);
    appendNumber(out, limit.liquidity_coeff);
    appendNumber(out, limit.cbp_prev_limit);
    appendNumber(out, limit.cbplimit);
    appendNumber(out, limit.cbplused);
    appendNumber(out, limit.cbplplanned);
    appendNumber(out, limit.varmargin);
    appendNumber(out, limit.accruedint);
    appendNumber(out, limit.kgo);
    appendFill(out, 104, 8);
    appendNumber(out, limit.cbplused_for_orders);
    appendNumber(out, limit.cbplused_for_positions);
    appendNumber(out, limit.options_premium);
    appendNumber(out, limit.net_options_value);
    appendNumber(out, limit.ts_comission);
    appendText(out, limit.currcode, 13);
    appendFill(out, 165, 3);
    appendNumber(out, limit.real_varmargin);
    appendFill(out, 176, 4);
    appendNumber(out, limit.risk_level);
    appendNumber(out, limit.go_planned);
    appendNumber(out, limit.go_without_orders);
    appendNumber(out, limit.indicative_varmargin);
    appendFill(out, 208, 8);
}

void appendFutPosition(std::string& out, const FutPosition& position) {
    appendFill(out, 0, 8);
    appendText(out, position.firmid, 13);
    appendText(out, position.trdaccid, 13);
    appendText(out, position.seccode, 13);
    appendFill(out, 47, 5);
    appendNumber(out, position.start_buy);
    appendNumber(out, position.start_sell);
    appendNumber(out, position.start_net);
    appendNumber(out, position.today_buy);
    appendNumber(out, position.today_sell);
    appendNumber(out, position.total_net);
    appendNumber(out, position.open_buys);
    appendNumber(out, position.open_sells);
    appendFill(out, 84, 12);
    appendNumber(out, position.cbplplanned);
    appendNumber(out, position.varmargin);
    appendFill(out, 112, 8);
    appendNumber(out, position.avrposnprice);
    appendNumber(out, position.positionvalue);
    appendNumber(out, position.total_varmargin);
    appendNumber(out, position.real_varmargin);
    appendFill(out, 152, 8);
    appendNumber(out, position.premium);
}

std::string encodeFutLimits(const std::vector<FutLimit>& limits) {
    std::string out;
    out.reserve(limits.size() * kFutLimitSize);
    for (const FutLimit& limit : limits)
        appendFutLimit(out, limit);
    return out;
}

std::string encodeFutPositions(const std::vector<FutPosition>& positions) {
    std::string out;
    out.reserve(positions.size() * kFutPositionSize);
    for (const FutPosition& position : positions)
        appendFutPosition(out, position);
    return out;
}

} // namespace sample
