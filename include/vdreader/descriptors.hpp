// Descriptors of parameters and securities, with value semantics, for C++ components of the family.
//
// Plain structures without bases or virtual operations.  Text is single-byte and ends at a zero;
// the size of a field counts it.  Dates, prices, scales and flags stand as the writer of the class
// file put them; nothing here interprets them but bit 0 of a parameter's flags.
//
// The library and its caller share one C++ run-time, since the vectors and strings cross the
// boundary.  Other modules are compiled against the order and the places of the fields.
//
// Threads: as for any value: one object, one thread at a time, unless all only read.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vdreader/export.h"

// Texts of a parameter in one language.
struct PARAM_NAME {
    std::uint16_t lang = 0;
    std::string short_name;
    std::string long_name;
    std::string enum_desc;
};

// Names of a security in one language.
struct SECURITY_NAME {
    std::uint16_t lang = 0;
    std::string short_name;
    std::string long_name;
};

// An entry of a security that is carried and not looked at.
struct SECURITY_SUBDESC {
    char code1[13] = {};
    char code2[13] = {};
    char code3[7] = {};
    std::int64_t value = 0;
    std::int16_t kind = 0;
    std::int32_t info = 0;
};

// One parameter of a class.  Its place among the class's parameters is its slot in the current
// data.
struct PARAMS_DESC {
    // All numbers zero and no names.  db_name is not touched.
    VDREADER_MEMBER PARAMS_DESC();
    VDREADER_MEMBER PARAMS_DESC(const PARAMS_DESC& other);
    VDREADER_MEMBER PARAMS_DESC(PARAMS_DESC&& other) noexcept;
    VDREADER_MEMBER PARAMS_DESC& operator=(const PARAMS_DESC& other);
    VDREADER_MEMBER PARAMS_DESC& operator=(PARAMS_DESC&& other) noexcept;
    VDREADER_MEMBER ~PARAMS_DESC();

    // Compares the enumeration texts of every pair of entries that have a language in common, this
    // object's entries outside and the other's inside.  The first difference decides: what memcmp
    // gives for the common length, else -1 where this text is the shorter and 1 where it is the
    // longer.  0 where no pair differs.
    VDREADER_MEMBER int CompareEnumDesc(const PARAMS_DESC& other) const;

    // Always 2423: the size in bytes by which components of the family dimension their buffers.
    VDREADER_MEMBER static std::uint64_t GetMaxSize();

    std::uint16_t par_id;
    std::uint16_t flags; // bit 0: the value is a double, else a 32-bit integer
    std::uint16_t scale;
    char db_name[17];
    std::vector<PARAM_NAME> names;
    std::uint32_t par_info;
    std::uint32_t par_info_ex;
};

// One security of a class.  sec_id is its key and its slot in the current data.
struct SECURITY_DESC {
    // Everything zero or empty, but lot_size and unnamedValue2 1 and unnamedValue3 -1.
    VDREADER_MEMBER SECURITY_DESC();
    VDREADER_MEMBER SECURITY_DESC(const SECURITY_DESC& other);
    VDREADER_MEMBER SECURITY_DESC(SECURITY_DESC&& other) noexcept;
    VDREADER_MEMBER SECURITY_DESC& operator=(const SECURITY_DESC& other);
    VDREADER_MEMBER SECURITY_DESC& operator=(SECURITY_DESC&& other) noexcept;
    VDREADER_MEMBER ~SECURITY_DESC();

    // Always 1644: the size in bytes by which components of the family dimension their buffers.
    VDREADER_MEMBER static std::int32_t GetMaxSize();

    std::uint32_t sec_id;
    char sec_code[13];
    char ISIN[13];
    char reg_number[31];
    char CFI[7];
    std::vector<SECURITY_NAME> names;
    char base_sec_code[13];
    char base_class_code[13];
    std::uint16_t sec_type;
    std::uint16_t sec_subtype;
    std::uint16_t list_level;
    std::uint32_t specific_flags;
    std::uint32_t min_step;
    double face_value;
    char face_unit[13];
    std::uint16_t scale;
    std::uint32_t mat_date;
    std::uint32_t lot_size;
    std::uint8_t unnamedByte1;
    std::int64_t unnamedValue1;
    char trade_currency[13];
    std::int64_t option_strike;
    char CCY1[13];
    char CCY2[13];
    double couponvalue;
    std::uint16_t couponperiod;
    std::uint32_t nextcoupon;
    std::uint32_t buybackdate;
    std::int64_t buybackprice;
    double yieldatprevwaprice;
    char step_price_currency[13];
    std::uint32_t closeval;
    std::vector<SECURITY_SUBDESC> subDescs;
    char stock_code[13];
    char sedol_code[8];
    char ric_code[33];
    char cusip_code[10];
    char stock_name[33];
    char bsid[21];
    std::uint16_t qtyScale;
    std::uint16_t qty_scale_CCY1;
    std::uint16_t qty_scale_CCY2;
    std::int64_t unnamedValue2;
    std::uint32_t expdate;
    char settleCode[13];
    char tickSizeTableId[65];
    std::uint32_t settleDate;
    std::int64_t accruedint;
    std::int16_t accruedIntScale;
    std::int32_t unnamedValue3;
    char benchmark[13];
    std::uint8_t unnamedByte2;
    std::uint8_t unnamedByte3;
};

namespace sarn::data {

// Empty states that other components of the family bind to.  Assignment does nothing.
struct SessionState {
    VDREADER_MEMBER SessionState();
    VDREADER_MEMBER SessionState(const SessionState& other);
    VDREADER_MEMBER SessionState(SessionState&& other) noexcept;
    VDREADER_MEMBER SessionState& operator=(const SessionState& other);
    VDREADER_MEMBER SessionState& operator=(SessionState&& other) noexcept;
    VDREADER_MEMBER ~SessionState();
};

struct ParamsIndexBind {
    VDREADER_MEMBER ParamsIndexBind();
    VDREADER_MEMBER ParamsIndexBind(const ParamsIndexBind& other);
    VDREADER_MEMBER ParamsIndexBind(ParamsIndexBind&& other) noexcept;
    VDREADER_MEMBER ParamsIndexBind& operator=(const ParamsIndexBind& other);
    VDREADER_MEMBER ParamsIndexBind& operator=(ParamsIndexBind&& other) noexcept;
    VDREADER_MEMBER ~ParamsIndexBind();
};

} // namespace sarn::data
