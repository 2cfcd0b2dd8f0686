// Compares loaded classes with what the reference reader found, through the exports and the
// descriptors alone, and runs every getter on the way.

#pragma once

#include <algorithm>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "classReference.h"
#include "getterChecks.h"
#include "vdreader/classes.h"
#include "vdreader/descriptors.hpp"
#include "vdreader/readers.h"
#include "vdreader/securities.h"

namespace reference {

// Exact: as the reference says.  WholeOrDefault: where reads failed earlier than the file ends,
// each field is either as the reference says or as default-made, and nothing in between.
enum class Match { Exact, WholeOrDefault };

struct LoadedClass {
    sClassParUnitedDesc* handle = nullptr;
    std::vector<sSecurityDesc*> securities;
    std::vector<sParDesc*> params;
};

template <class... Fields>
std::string imageOf(const Fields&... fields) {
    std::string image;
    image.reserve((sizeof fields + ...));
    (image.append(reinterpret_cast<const char*>(&fields), sizeof fields), ...);
    return image;
}

inline std::string imageOf(const PARAMS_DESC& p) {
    return imageOf(p.par_id, p.flags, p.scale, p.db_name, p.par_info, p.par_info_ex);
}

inline std::string imageOf(const SECURITY_DESC& s) {
    return imageOf(s.sec_id, s.sec_code, s.ISIN, s.reg_number, s.CFI) +
           imageOf(s.base_sec_code, s.base_class_code, s.sec_type, s.sec_subtype, s.list_level,
                   s.specific_flags, s.min_step, s.face_value, s.face_unit, s.scale, s.mat_date,
                   s.lot_size, s.unnamedByte1, s.unnamedValue1, s.trade_currency, s.option_strike,
                   s.CCY1, s.CCY2, s.couponvalue, s.couponperiod, s.nextcoupon, s.buybackdate,
                   s.buybackprice, s.yieldatprevwaprice, s.step_price_currency, s.closeval) +
           imageOf(s.stock_code, s.sedol_code, s.ric_code, s.cusip_code, s.stock_name, s.bsid,
                   s.qtyScale, s.qty_scale_CCY1, s.qty_scale_CCY2, s.unnamedValue2, s.expdate,
                   s.settleCode, s.tickSizeTableId, s.settleDate, s.accruedIntScale, s.accruedint,
                   s.unnamedValue3, s.unnamedByte3, s.benchmark);
}

inline std::string imageOf(const SECURITY_SUBDESC& d) {
    return imageOf(d.code1, d.code2, d.code3, d.value, d.kind, d.info);
}

inline bool sameText(const std::string& loaded, const std::string& wanted, Match match) {
    return loaded == wanted || (match == Match::WholeOrDefault && loaded.empty());
}

inline bool sameName(const SECURITY_NAME& loaded, const Name& wanted, Match match) {
    return (loaded.lang == wanted.lang || (match == Match::WholeOrDefault && loaded.lang == 0)) &&
           sameText(loaded.long_name, wanted.longName, match) &&
           sameText(loaded.short_name, wanted.shortName, match);
}

inline bool sameName(const PARAM_NAME& loaded, const Name& wanted, Match match) {
    return (loaded.lang == wanted.lang || (match == Match::WholeOrDefault && loaded.lang == 0)) &&
           sameText(loaded.long_name, wanted.longName, match) &&
           sameText(loaded.short_name, wanted.shortName, match) &&
           sameText(loaded.enum_desc, wanted.enumDesc, match);
}

// Fields one by one; `sizes` in stored order.
inline bool sameFields(const std::string& loaded, const std::string& wanted,
                       const std::string& byDefault,
                       std::initializer_list<std::span<const std::uint8_t>> sizes, Match match) {
    if (loaded == wanted)
        return true;
    if (match == Match::Exact || loaded.size() != wanted.size())
        return false;
    std::size_t at = 0;
    for (const auto& run : sizes)
        for (const std::uint8_t size : run) {
            if (loaded.compare(at, size, wanted, at, size) != 0 &&
                loaded.compare(at, size, byDefault, at, size) != 0)
                return false;
            at += size;
        }
    return true;
}

inline std::string firstDifference(const std::string& loaded, const std::string& wanted) {
    std::size_t at = 0;
    while (at < loaded.size() && at < wanted.size() && loaded[at] == wanted[at])
        ++at;
    return std::to_string(at);
}

// Begun entries are compared, of the defaulted ones behind them the first and the last.
template <class Loaded, class Wanted, class Same>
std::string sameEntries(const Loaded& loaded, const std::vector<Wanted>& wanted,
                        std::uint64_t count, const Wanted& byDefault, Match match, Same same) {
    if (match == Match::WholeOrDefault && loaded.empty())
        return {};
    if (loaded.size() != count)
        return "count " + std::to_string(loaded.size()) + " for " + std::to_string(count);
    for (std::size_t i = 0; i < wanted.size(); ++i)
        if (!same(loaded[i], wanted[i]))
            return "entry " + std::to_string(i);
    if (wanted.size() < count &&
        (!same(loaded[wanted.size()], byDefault) || !same(loaded[count - 1], byDefault)))
        return "a defaulted entry";
    return {};
}

inline std::string difference(const SECURITY_DESC& loaded, const Descriptor& wanted, Match match) {
    static const std::string byDefault = defaultSecurity();
    if (!sameFields(imageOf(loaded), wanted.image, byDefault,
                    {kSecurityHead, kSecurityMiddle, kSecurityTail}, match))
        return "fields of a security from byte " + firstDifference(imageOf(loaded), wanted.image);
    if (loaded.unnamedByte2 != 0)
        return "unnamedByte2 of a security";
    std::string found =
        sameEntries(loaded.names, wanted.names, wanted.nameCount, Name{}, match,
                    [match](const auto& a, const Name& b) { return sameName(a, b, match); });
    if (!found.empty())
        return "names of a security: " + found;
    found =
        sameEntries(loaded.subDescs, wanted.subDescs, wanted.subDescCount, std::string(47, '\0'),
                    match, [match](const auto& a, const std::string& b) {
                        return sameFields(imageOf(a), b, std::string(47, '\0'), {kSubDesc}, match);
                    });
    return found.empty() ? getterDifference(&loaded) : "sub-descriptors of a security: " + found;
}

inline std::string difference(const PARAMS_DESC& loaded, const Descriptor& wanted, Match match,
                              bool begun) {
    static const std::string byDefault = defaultParam();
    std::string image = imageOf(loaded);
    // The db_name of a descriptor that the file does not begin is not told.
    if (!begun)
        std::fill_n(image.begin() + 6, 17, '\0');
    if (!sameFields(image, wanted.image, byDefault, {kParamHead, kParamTail}, match))
        return "fields of a parameter from byte " + firstDifference(image, wanted.image);
    const std::string found =
        sameEntries(loaded.names, wanted.names, wanted.nameCount, Name{}, match,
                    [match](const auto& a, const Name& b) { return sameName(a, b, match); });
    return found.empty() ? getterDifference(&loaded) : "names of a parameter: " + found;
}

// Places to look at: all begun ones, the first behind them and the last.
inline std::vector<std::size_t> placesOf(std::size_t begun, std::size_t count) {
    std::vector<std::size_t> places;
    for (std::size_t i = 0; i < std::min(begun + 1, count); ++i)
        places.push_back(i);
    if (count > begun + 1)
        places.push_back(count - 1);
    return places;
}

inline std::string difference(const LoadedClass& loaded, const Class& wanted, Match match) {
    std::string found = textDifference(loaded.handle, wanted.record);
    if (!found.empty())
        return found;
    if (loaded.securities.size() != wanted.securityCount)
        return "count of securities";
    if (loaded.params.size() != wanted.paramCount)
        return "count of parameters";
    const Descriptor defaults{defaultSecurity(), 0, {}, 0, {}};
    for (const std::size_t i : placesOf(wanted.securities.size(), loaded.securities.size())) {
        const bool begun = i < wanted.securities.size();
        found = difference(*loaded.securities[i], begun ? wanted.securities[i] : defaults, match);
        if (!found.empty())
            return found + " " + std::to_string(i);
    }
    const Descriptor paramDefaults{defaultParam(), 0, {}, 0, {}};
    for (const std::size_t i : placesOf(wanted.params.size(), loaded.params.size())) {
        const bool begun = i < wanted.params.size();
        found = difference(*loaded.params[i], begun ? wanted.params[i] : paramDefaults, match,
                           begun && match == Match::Exact);
        if (!found.empty())
            return found + " " + std::to_string(i);
    }
    return {};
}

inline std::string difference(const std::vector<LoadedClass>& loaded, const ClassFile& wanted) {
    if (loaded.size() != wanted.classes.size())
        return std::to_string(loaded.size()) + " classes for " +
               std::to_string(wanted.classes.size());
    for (std::size_t i = 0; i < loaded.size(); ++i) {
        const std::string found = difference(loaded[i], wanted.classes[i], Match::Exact);
        if (!found.empty())
            return "class " + std::to_string(i) + ": " + found;
    }
    return {};
}

namespace walks {
inline std::vector<LoadedClass> found;
inline std::map<sClassParUnitedDesc*, std::size_t> places;
inline std::size_t securities;

inline std::int32_t takeClass(sClassParUnitedDesc* handle) {
    places[handle] = found.size();
    LoadedClass& loaded = found.emplace_back();
    loaded.handle = handle;
    for (sParDesc* param = get_sClassParUnitedDesc_par_desc(handle); param != nullptr;
         param = get_sParDesc_next(handle))
        loaded.params.push_back(param);
    return 1;
}
inline std::int32_t takeSecurity(sClassParUnitedDesc* handle, sSecurityDesc* security) {
    found.at(places.at(handle)).securities.push_back(security);
    return 1;
}
inline std::int32_t countSecurity(sClassParUnitedDesc*, sSecurityDesc*) {
    ++securities;
    return 1;
}
} // namespace walks

// Everything that the walks hand out; an empty vector where one of them fails.
inline std::vector<LoadedClass> loadedClasses() {
    walks::found.clear();
    walks::places.clear();
    if (for_each_class(walks::takeClass) != 1 || for_each_security(walks::takeSecurity) != 1)
        walks::found.clear();
    return walks::found;
}

// How many securities the walk by a code hands out.
inline std::size_t countInClass(const char* code) {
    walks::securities = 0;
    return for_each_security_in_class(code, walks::countSecurity) == 1 ? walks::securities
                                                                       : SIZE_MAX;
}

} // namespace reference
