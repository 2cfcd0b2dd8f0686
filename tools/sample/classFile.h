// Writer of class.vd: the head, the array of class records and, behind it, one block of securities
// and one of parameters for each record that has them, in the order of the records.
//
// All numbers little-endian, without padding.  Text longer than its field fills the field without
// a terminator, so that damaged files can be made; see appendText.

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace sample {

// ---- layout, for those who damage a file on purpose ----

// Offsets in the file.
inline constexpr std::size_t kHeadOffset = 0;
inline constexpr std::size_t kHeadSize = 13;
inline constexpr std::size_t kHeadTextSize = 8; // "CLASSES" and its zero; the other 5 are free
inline constexpr std::size_t kVersionOffset = 13;
inline constexpr std::size_t kInfoOffset = 17;
inline constexpr std::size_t kInfoSize = 128;
inline constexpr std::size_t kClassCountOffset = kInfoOffset;
inline constexpr std::size_t kRecordsOffset = 145;

// STORE_CLASS_DESC: its size, and offsets in it.
inline constexpr std::size_t kClassRecordSize = 3464;
namespace classRecord {
inline constexpr std::size_t kMagic = 0;
inline constexpr std::size_t kClassId = 4;
inline constexpr std::size_t kClassCode = 8;
inline constexpr std::size_t kFh = 2328;
inline constexpr std::size_t kFl = 2585;
inline constexpr std::size_t kCh = 2842;
inline constexpr std::size_t kCl = 3099;
inline constexpr std::size_t kParamsCount = 3388;
inline constexpr std::size_t kSecuritiesCount = 3392;
inline constexpr std::size_t kSecuritiesOffset = 3440;
inline constexpr std::size_t kParamsOffset = 3444;
} // namespace classRecord

inline constexpr std::uint32_t kVersion = 15;
inline constexpr std::uint16_t kUsedMagic = 8261;
inline constexpr std::uint16_t kFreeMagic = 0;
inline constexpr std::uint32_t kNoBlock = 0xFFFFFFFF;
inline constexpr std::size_t kCodeSize = 13;
inline constexpr std::size_t kClassTextSize = 257;

// Stored sizes of a parameter and a security without names and sub-descriptors, and of what each
// name (beside its texts, which take their length and 1 where not empty) and sub-descriptor adds.
inline constexpr std::size_t kParamBaseSize = 35;
inline constexpr std::size_t kParamNameBaseSize = 14;
inline constexpr std::size_t kSecurityBaseSize = 500;
inline constexpr std::size_t kSecurityNameBaseSize = 10;
inline constexpr std::size_t kSubDescSize = 47;

// ---- what is written ----

// Names of a security in one language.
struct Name {
    std::uint16_t lang = 0;
    std::string short_name;
    std::string long_name;
};

// Texts of a parameter in one language.
struct ParamName {
    std::uint16_t lang = 0;
    std::string short_name;
    std::string long_name;
    std::string enum_desc;
};

struct Param {
    std::uint16_t par_id = 0;
    std::uint16_t flags = 0; // bit 0: the value is a double
    std::uint16_t scale = 0;
    std::string db_name; // 17
    std::vector<ParamName> names;
    std::uint32_t par_info = 0;
    std::uint32_t par_info_ex = 0;
};

struct SubDesc {
    std::string code1; // 13
    std::string code2; // 13
    std::string code3; // 7
    std::int64_t value = 0;
    std::int16_t kind = 0;
    std::int32_t info = 0;
};

// Fields in stored order.
struct Security {
    std::uint32_t sec_id = 0;
    std::string sec_code;   // 13
    std::string ISIN;       // 13
    std::string reg_number; // 31
    std::string CFI;        // 7
    std::vector<Name> names;
    std::string base_sec_code;   // 13
    std::string base_class_code; // 13
    std::uint16_t sec_type = 0;
    std::uint16_t sec_subtype = 0;
    std::uint16_t list_level = 0;
    std::uint32_t specific_flags = 0;
    std::uint32_t min_step = 0;
    double face_value = 0;
    std::string face_unit; // 13
    std::uint16_t scale = 0;
    std::uint32_t mat_date = 0;
    std::uint32_t lot_size = 1;
    std::uint8_t unnamedByte1 = 0;
    std::int64_t unnamedValue1 = 0;
    std::string trade_currency; // 13
    std::int64_t option_strike = 0;
    std::string CCY1; // 13
    std::string CCY2; // 13
    double couponvalue = 0;
    std::uint16_t couponperiod = 0;
    std::uint32_t nextcoupon = 0;
    std::uint32_t buybackdate = 0;
    std::int64_t buybackprice = 0;
    double yieldatprevwaprice = 0;
    std::string step_price_currency; // 13
    std::uint32_t closeval = 0;
    std::vector<SubDesc> subDescs;
    std::string stock_code; // 13
    std::string sedol_code; // 8
    std::string ric_code;   // 33
    std::string cusip_code; // 10
    std::string stock_name; // 33
    std::string bsid;       // 21
    std::uint16_t qtyScale = 0;
    std::uint16_t qty_scale_CCY1 = 0;
    std::uint16_t qty_scale_CCY2 = 0;
    std::int64_t unnamedValue2 = 1;
    std::uint32_t expdate = 0;
    std::string settleCode;      // 13
    std::string tickSizeTableId; // 65
    std::uint32_t settleDate = 0;
    std::int16_t accruedIntScale = 0;
    std::int64_t accruedint = 0;
    std::int32_t unnamedValue3 = -1;
    std::uint8_t unnamedByte3 = 0;
    std::string benchmark; // 13
};

// One class.  A class whose vector is empty gets no block: count 0 and offset kNoBlock.  The
// stored* values replace what the record or block would say, and change nothing else: a count of
// 0 or kNoBlock can hide a block that is there, and a count can promise more than there is.
struct ClassRecord {
    std::uint16_t magic = kUsedMagic;
    std::int32_t classId = 0;
    std::string classCode; // 13
    std::string fh;        // 257
    std::string fl;        // 257
    std::string ch;        // 257
    std::string cl;        // 257
    std::vector<Param> params;
    std::vector<Security> securities;

    std::optional<std::int32_t> storedSecuritiesCount = {};
    std::optional<std::uint32_t> storedSecuritiesOffset = {};
    std::optional<std::uint32_t> storedSecuritiesSize = {};
    std::optional<std::int32_t> storedParamsCount = {};
    std::optional<std::uint32_t> storedParamsOffset = {};
    std::optional<std::uint32_t> storedParamsSize = {};
};

// Where things landed: offsets from the start of the file.  A block's offset is that of its 4
// bytes of size, kNoBlock where the class has none.
struct ClassRecordLayout {
    std::size_t record = 0;
    std::size_t securitiesBlock = kNoBlock;
    std::size_t paramsBlock = kNoBlock;
    std::vector<std::size_t> securities;
    std::vector<std::size_t> params;
};

struct ClassFileLayout {
    std::vector<ClassRecordLayout> classes;
    std::size_t fileSize = 0;
};

// ---- encoders ----

// The whole file.  `layout`, where given, is filled anew.  Raises std::length_error if a block
// would stand beyond what a 32-bit offset reaches.
std::string encodeClassFile(const std::vector<ClassRecord>& classes,
                            ClassFileLayout* layout = nullptr);

// The head, version and info block alone, 145 bytes.
std::string encodeClassHead(std::uint32_t classCount);

std::string encodeParam(const Param& param);
std::string encodeSecurity(const Security& security);
void appendParam(std::string& out, const Param& param);
void appendSecurity(std::string& out, const Security& security);

} // namespace sample
