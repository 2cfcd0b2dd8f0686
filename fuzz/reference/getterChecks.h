// Every getter of classes, parameters and securities against the field that it stands for: pointers
// are those of the fields, numbers have the field's value in the wider type.

#pragma once

#include <cstring>
#include <string>

#include "vdreader/classes.h"
#include "vdreader/descriptors.hpp"
#include "vdreader/securities.h"

namespace reference {

// Floating values by their bits, so that no number counts as different from itself.
inline bool sameBits(double a, double b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

// A text of a field; its bytes are touched, so that a sanitizer sees a pointer into nowhere.
inline bool readable(const char* text, std::size_t size) {
    if (text == nullptr)
        return false;
    [[maybe_unused]] const volatile std::size_t length = strnlen(text, size);
    return true;
}

#define VDREADER_CHECK_TEXT(record, field)                         \
  if (get_##record##_##field(from) != from->field ||               \
      !readable(get_##record##_##field(from), sizeof from->field)) \
  return "get_" #record "_" #field

#define VDREADER_CHECK_NUMBER(record, field)       \
  if (get_##record##_##field(from) != from->field) \
  return "get_" #record "_" #field

#define VDREADER_CHECK_DOUBLE(record, field)                \
  if (!sameBits(get_##record##_##field(from), from->field)) \
  return "get_" #record "_" #field

// The first entry of each language that occurs, and null for one that does not.
template <class Names, class Getter, class Text>
bool languageGetterFits(const Names& names, Getter get, Text text) {
    bool all[5] = {};
    for (std::size_t i = 0; i < names.size() && i < 64; ++i) {
        std::size_t first = 0;
        while (names[first].lang != names[i].lang)
            ++first;
        if (get(names[i].lang) != text(names[first]))
            return false;
        if (names[i].lang < 5)
            all[names[i].lang] = true;
    }
    if (names.size() < 64)
        for (std::uint16_t lang = 0; lang < 5; ++lang)
            if (!all[lang] && get(lang) != nullptr)
                return false;
    return true;
}

// Empty, or the name of the getter that does not fit.
inline std::string getterDifference(const sParDesc* from) {
    VDREADER_CHECK_NUMBER(sParDesc, par_id);
    VDREADER_CHECK_NUMBER(sParDesc, flags);
    VDREADER_CHECK_NUMBER(sParDesc, scale);
    VDREADER_CHECK_NUMBER(sParDesc, par_info);
    VDREADER_CHECK_NUMBER(sParDesc, par_info_ex);
    VDREADER_CHECK_TEXT(sParDesc, db_name);
    if (!languageGetterFits(
            from->names, [&](std::uint16_t lang) { return get_sParDesc_short_name(from, lang); },
            [](const PARAM_NAME& name) { return name.short_name.c_str(); }))
        return "get_sParDesc_short_name";
    if (!languageGetterFits(
            from->names, [&](std::uint16_t lang) { return get_sParDesc_long_name(from, lang); },
            [](const PARAM_NAME& name) { return name.long_name.c_str(); }))
        return "get_sParDesc_long_name";
    if (!languageGetterFits(
            from->names, [&](std::uint16_t lang) { return get_sParDesc_enum(from, lang); },
            [](const PARAM_NAME& name) { return name.enum_desc.c_str(); }))
        return "get_sParDesc_enum";
    return {};
}

inline std::string securityTextDifference(const sSecurityDesc* from) {
    VDREADER_CHECK_TEXT(sSecurityDesc, CCY1);
    VDREADER_CHECK_TEXT(sSecurityDesc, CCY2);
    VDREADER_CHECK_TEXT(sSecurityDesc, CFI);
    VDREADER_CHECK_TEXT(sSecurityDesc, ISIN);
    VDREADER_CHECK_TEXT(sSecurityDesc, base_class_code);
    VDREADER_CHECK_TEXT(sSecurityDesc, base_sec_code);
    VDREADER_CHECK_TEXT(sSecurityDesc, benchmark);
    VDREADER_CHECK_TEXT(sSecurityDesc, bsid);
    VDREADER_CHECK_TEXT(sSecurityDesc, cusip_code);
    VDREADER_CHECK_TEXT(sSecurityDesc, face_unit);
    VDREADER_CHECK_TEXT(sSecurityDesc, reg_number);
    VDREADER_CHECK_TEXT(sSecurityDesc, ric_code);
    VDREADER_CHECK_TEXT(sSecurityDesc, sec_code);
    VDREADER_CHECK_TEXT(sSecurityDesc, sedol_code);
    VDREADER_CHECK_TEXT(sSecurityDesc, settleCode);
    VDREADER_CHECK_TEXT(sSecurityDesc, step_price_currency);
    VDREADER_CHECK_TEXT(sSecurityDesc, stock_code);
    VDREADER_CHECK_TEXT(sSecurityDesc, stock_name);
    VDREADER_CHECK_TEXT(sSecurityDesc, tickSizeTableId);
    VDREADER_CHECK_TEXT(sSecurityDesc, trade_currency);
    if (!languageGetterFits(
            from->names,
            [&](std::uint16_t lang) { return get_sSecurityDesc_short_name(from, lang); },
            [](const SECURITY_NAME& name) { return name.short_name.c_str(); }))
        return "get_sSecurityDesc_short_name";
    if (!languageGetterFits(
            from->names,
            [&](std::uint16_t lang) { return get_sSecurityDesc_long_name(from, lang); },
            [](const SECURITY_NAME& name) { return name.long_name.c_str(); }))
        return "get_sSecurityDesc_long_name";
    return {};
}

inline std::string getterDifference(const sSecurityDesc* from) {
    VDREADER_CHECK_NUMBER(sSecurityDesc, couponperiod);
    VDREADER_CHECK_NUMBER(sSecurityDesc, list_level);
    VDREADER_CHECK_NUMBER(sSecurityDesc, qtyScale);
    VDREADER_CHECK_NUMBER(sSecurityDesc, qty_scale_CCY1);
    VDREADER_CHECK_NUMBER(sSecurityDesc, qty_scale_CCY2);
    VDREADER_CHECK_NUMBER(sSecurityDesc, scale);
    VDREADER_CHECK_NUMBER(sSecurityDesc, sec_subtype);
    VDREADER_CHECK_NUMBER(sSecurityDesc, sec_type);
    VDREADER_CHECK_NUMBER(sSecurityDesc, accruedIntScale);
    VDREADER_CHECK_NUMBER(sSecurityDesc, buybackdate);
    VDREADER_CHECK_NUMBER(sSecurityDesc, closeval);
    VDREADER_CHECK_NUMBER(sSecurityDesc, expdate);
    VDREADER_CHECK_NUMBER(sSecurityDesc, lot_size);
    VDREADER_CHECK_NUMBER(sSecurityDesc, mat_date);
    VDREADER_CHECK_NUMBER(sSecurityDesc, min_step);
    VDREADER_CHECK_NUMBER(sSecurityDesc, nextcoupon);
    VDREADER_CHECK_NUMBER(sSecurityDesc, settleDate);
    VDREADER_CHECK_NUMBER(sSecurityDesc, specific_flags);
    VDREADER_CHECK_NUMBER(sSecurityDesc, accruedint);
    VDREADER_CHECK_NUMBER(sSecurityDesc, buybackprice);
    VDREADER_CHECK_NUMBER(sSecurityDesc, option_strike);
    VDREADER_CHECK_DOUBLE(sSecurityDesc, couponvalue);
    VDREADER_CHECK_DOUBLE(sSecurityDesc, face_value);
    VDREADER_CHECK_DOUBLE(sSecurityDesc, yieldatprevwaprice);
    return securityTextDifference(from);
}

// The texts of a class against its record as it stands in the file.
inline std::string textDifference(const sClassParUnitedDesc* from, const std::string& record) {
    if (std::memcmp(get_sClassParUnitedDesc_class_code(from), &record[8], 13) != 0)
        return "get_sClassParUnitedDesc_class_code";
    if (std::memcmp(get_sClassParUnitedDesc_fh(from), &record[2328], 257) != 0)
        return "get_sClassParUnitedDesc_fh";
    if (std::memcmp(get_sClassParUnitedDesc_fl(from), &record[2585], 257) != 0)
        return "get_sClassParUnitedDesc_fl";
    if (std::memcmp(get_sClassParUnitedDesc_ch(from), &record[2842], 257) != 0)
        return "get_sClassParUnitedDesc_ch";
    if (std::memcmp(get_sClassParUnitedDesc_cl(from), &record[3099], 257) != 0)
        return "get_sClassParUnitedDesc_cl";
    return {};
}

} // namespace reference
