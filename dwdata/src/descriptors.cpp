// Exported members of the descriptors.

#include "vdreader/descriptors.hpp"

#include <algorithm>
#include <cstring>

// db_name is left as the memory held it: the writer of a descriptor fills it whole.
PARAMS_DESC::PARAMS_DESC() : par_id(0), flags(0), scale(0), par_info(0), par_info_ex(0) {}
PARAMS_DESC::PARAMS_DESC(const PARAMS_DESC& other) = default;
PARAMS_DESC::PARAMS_DESC(PARAMS_DESC&& other) noexcept = default;
PARAMS_DESC& PARAMS_DESC::operator=(const PARAMS_DESC& other) = default;
PARAMS_DESC& PARAMS_DESC::operator=(PARAMS_DESC&& other) noexcept = default;
PARAMS_DESC::~PARAMS_DESC() = default;

int PARAMS_DESC::CompareEnumDesc(const PARAMS_DESC& other) const {
    for (const PARAM_NAME& a : names) {
        for (const PARAM_NAME& b : other.names) {
            if (a.lang != b.lang)
                continue;
            const std::size_t common = std::min(a.enum_desc.size(), b.enum_desc.size());
            if (const int order = std::memcmp(a.enum_desc.data(), b.enum_desc.data(), common))
                return order;
            if (a.enum_desc.size() != b.enum_desc.size())
                return a.enum_desc.size() < b.enum_desc.size() ? -1 : 1;
        }
    }
    return 0;
}

std::uint64_t PARAMS_DESC::GetMaxSize() {
    return 2423;
}

SECURITY_DESC::SECURITY_DESC()
    : sec_id{},
      sec_code{},
      ISIN{},
      reg_number{},
      CFI{},
      names{},
      base_sec_code{},
      base_class_code{},
      sec_type{},
      sec_subtype{},
      list_level{},
      specific_flags{},
      min_step{},
      face_value{},
      face_unit{},
      scale{},
      mat_date{},
      lot_size(1),
      unnamedByte1{},
      unnamedValue1{},
      trade_currency{},
      option_strike{},
      CCY1{},
      CCY2{},
      couponvalue{},
      couponperiod{},
      nextcoupon{},
      buybackdate{},
      buybackprice{},
      yieldatprevwaprice{},
      step_price_currency{},
      closeval{},
      subDescs{},
      stock_code{},
      sedol_code{},
      ric_code{},
      cusip_code{},
      stock_name{},
      bsid{},
      qtyScale{},
      qty_scale_CCY1{},
      qty_scale_CCY2{},
      unnamedValue2(1),
      expdate{},
      settleCode{},
      tickSizeTableId{},
      settleDate{},
      accruedint{},
      accruedIntScale{},
      unnamedValue3(-1),
      benchmark{},
      unnamedByte2{},
      unnamedByte3{} {}
SECURITY_DESC::SECURITY_DESC(const SECURITY_DESC& other) = default;
SECURITY_DESC::SECURITY_DESC(SECURITY_DESC&& other) noexcept = default;
SECURITY_DESC& SECURITY_DESC::operator=(const SECURITY_DESC& other) = default;
SECURITY_DESC& SECURITY_DESC::operator=(SECURITY_DESC&& other) noexcept = default;
SECURITY_DESC::~SECURITY_DESC() = default;

std::int32_t SECURITY_DESC::GetMaxSize() {
    return 1644;
}

namespace sarn::data {

SessionState::SessionState() = default;
SessionState::SessionState(const SessionState&) = default;
SessionState::SessionState(SessionState&&) noexcept = default;
SessionState::~SessionState() = default;
SessionState& SessionState::operator=(const SessionState&) {
    return *this;
}
SessionState& SessionState::operator=(SessionState&&) noexcept {
    return *this;
}

ParamsIndexBind::ParamsIndexBind() = default;
ParamsIndexBind::ParamsIndexBind(const ParamsIndexBind&) = default;
ParamsIndexBind::ParamsIndexBind(ParamsIndexBind&&) noexcept = default;
ParamsIndexBind::~ParamsIndexBind() = default;
ParamsIndexBind& ParamsIndexBind::operator=(const ParamsIndexBind&) {
    return *this;
}
ParamsIndexBind& ParamsIndexBind::operator=(ParamsIndexBind&&) noexcept {
    return *this;
}

} // namespace sarn::data
