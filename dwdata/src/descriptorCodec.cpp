// The stored fields of parameters and securities, in stored order, one line each.

#include "descriptorCodec.h"

#include <bit>
#include <cstring>
#include <stdexcept>

#include "dwdata/ClassStorage.h"

namespace codec {

static_assert(std::endian::native == std::endian::little,
              "stored numbers are copied as they stand");

namespace {

// The runs of fixed fields.  `in` is a stream or a cursor in memory.

template <class In, class Param>
void paramHead(In& in, Param& p, std::uint32_t& nameCount) {
    in.get(p.par_id);
    in.get(p.flags);
    in.get(p.scale);
    in.get(p.db_name);
    in.get(nameCount);
}

template <class In, class Param>
void paramTail(In& in, Param& p) {
    in.get(p.par_info);
    in.get(p.par_info_ex);
}

template <class In, class Security>
void securityHead(In& in, Security& s, std::uint32_t& nameCount) {
    in.get(s.sec_id);
    in.get(s.sec_code);
    in.get(s.ISIN);
    in.get(s.reg_number);
    in.get(s.CFI);
    in.get(nameCount);
}

template <class In, class Security>
void securityMiddle(In& in, Security& s, std::uint32_t& subDescCount) {
    in.get(s.base_sec_code);
    in.get(s.base_class_code);
    in.get(s.sec_type);
    in.get(s.sec_subtype);
    in.get(s.list_level);
    in.get(s.specific_flags);
    in.get(s.min_step);
    in.get(s.face_value);
    in.get(s.face_unit);
    in.get(s.scale);
    in.get(s.mat_date);
    in.get(s.lot_size);
    in.get(s.unnamedByte1);
    in.get(s.unnamedValue1);
    in.get(s.trade_currency);
    in.get(s.option_strike);
    in.get(s.CCY1);
    in.get(s.CCY2);
    in.get(s.couponvalue);
    in.get(s.couponperiod);
    in.get(s.nextcoupon);
    in.get(s.buybackdate);
    in.get(s.buybackprice);
    in.get(s.yieldatprevwaprice);
    in.get(s.step_price_currency);
    in.get(s.closeval);
    in.get(subDescCount);
}

template <class In, class SubDesc>
void subDesc(In& in, SubDesc& d) {
    in.get(d.code1);
    in.get(d.code2);
    in.get(d.code3);
    in.get(d.value);
    in.get(d.kind);
    in.get(d.info);
}

template <class In, class Security>
void securityTail(In& in, Security& s) {
    in.get(s.stock_code);
    in.get(s.sedol_code);
    in.get(s.ric_code);
    in.get(s.cusip_code);
    in.get(s.stock_name);
    in.get(s.bsid);
    in.get(s.qtyScale);
    in.get(s.qty_scale_CCY1);
    in.get(s.qty_scale_CCY2);
    in.get(s.unnamedValue2);
    in.get(s.expdate);
    in.get(s.settleCode);
    in.get(s.tickSizeTableId);
    in.get(s.settleDate);
    in.get(s.accruedIntScale);
    in.get(s.accruedint);
    in.get(s.unnamedValue3);
    in.get(s.unnamedByte3);
    in.get(s.benchmark);
}

// Fields at a place in memory that is known to hold them all.
class Cursor {
  public:
    explicit Cursor(const char* at) : m_at(at) {}

    template <class T>
    void get(T& value) {
        std::memcpy(&value, m_at, sizeof value);
        m_at += sizeof value;
    }

  private:
    const char* m_at;
};

// Reads a run of `Size` bytes; `run` is called with whichever input serves.
template <std::size_t Size, class Run>
void readRun(ByteStream& stream, Run run) {
    if (const char* bytes = stream.contiguous(Size)) {
        Cursor cursor(bytes);
        run(cursor);
    } else {
        run(stream);
    }
}

constexpr std::size_t kParamHead = 27;
constexpr std::size_t kParamTail = 8;
constexpr std::size_t kSecurityHead = 72;
constexpr std::size_t kSecurityMiddle = 182;
constexpr std::size_t kSubDesc = 47;
constexpr std::size_t kSecurityTail = 246;
static_assert(kParamHead + kParamTail == kLeastParamSize);
static_assert(kSecurityHead + kSecurityMiddle + kSecurityTail == kLeastSecuritySize);

template <class Entry>
void resizeChecked(std::vector<Entry>& entries, std::uint32_t count) {
    checkVectorSize(count, sizeof(Entry));
    entries.clear();
    entries.resize(count);
}

void readName(ByteStream& stream, PARAM_NAME& name) {
    stream.get(name.lang);
    stream.readCountedString(name.long_name);
    stream.readCountedString(name.short_name);
    stream.readCountedString(name.enum_desc);
}

void readName(ByteStream& stream, SECURITY_NAME& name) {
    stream.get(name.lang);
    stream.readCountedString(name.long_name);
    stream.readCountedString(name.short_name);
}

template <class Name>
void readNames(ByteStream& stream, std::vector<Name>& names, std::uint32_t count) {
    resizeChecked(names, count);
    for (Name& name : names) {
        if (!stream.good())
            return;
        readName(stream, name);
    }
}

} // namespace

void checkVectorSize(std::uint64_t count, std::size_t elementSize) {
    if (count > ClassStorage::kMostBytes / elementSize)
        throw std::length_error("vector too long");
}

void clearUntouched(PARAMS_DESC& param) {
    std::memset(param.db_name, 0, sizeof param.db_name);
}

void read(ByteStream& stream, PARAMS_DESC& param) {
    clearUntouched(param);
    std::uint32_t count = 0;
    readRun<kParamHead>(stream, [&](auto& in) { paramHead(in, param, count); });
    readNames(stream, param.names, count);
    readRun<kParamTail>(stream, [&](auto& in) { paramTail(in, param); });
}

void read(ByteStream& stream, SECURITY_DESC& security) {
    std::uint32_t count = 0;
    readRun<kSecurityHead>(stream, [&](auto& in) { securityHead(in, security, count); });
    readNames(stream, security.names, count);

    count = 0;
    readRun<kSecurityMiddle>(stream, [&](auto& in) { securityMiddle(in, security, count); });
    resizeChecked(security.subDescs, count);
    for (SECURITY_SUBDESC& entry : security.subDescs) {
        if (!stream.good())
            return;
        readRun<kSubDesc>(stream, [&](auto& in) { subDesc(in, entry); });
    }
    readRun<kSecurityTail>(stream, [&](auto& in) { securityTail(in, security); });
}

} // namespace codec
