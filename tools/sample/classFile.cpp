// Encoding of class.vd.

#include "sample/classFile.h"

#include <stdexcept>

#include "sample/bytes.h"

namespace sample {

namespace {

std::string makeRecordTemplate() {
    std::string record;
    appendFill(record, 0, kClassRecordSize);
    return record;
}

void putRecord(std::string& out, std::size_t at, const ClassRecord& source) {
    putNumber(out, at + classRecord::kMagic, source.magic);
    putNumber(out, at + classRecord::kClassId, source.classId);
    putText(out, at + classRecord::kClassCode, source.classCode, kCodeSize);
    putText(out, at + classRecord::kFh, source.fh, kClassTextSize);
    putText(out, at + classRecord::kFl, source.fl, kClassTextSize);
    putText(out, at + classRecord::kCh, source.ch, kClassTextSize);
    putText(out, at + classRecord::kCl, source.cl, kClassTextSize);
    putNumber(out, at + classRecord::kParamsCount,
              source.storedParamsCount.value_or(static_cast<std::int32_t>(source.params.size())));
    putNumber(
        out, at + classRecord::kSecuritiesCount,
        source.storedSecuritiesCount.value_or(static_cast<std::int32_t>(source.securities.size())));
}

// Appends a block of 4 bytes of size and the elements, and tells its offset, kNoBlock if there are
// no elements.  Where each element begins goes to `places`.
template <typename Element>
std::uint32_t appendBlock(std::string& out, const std::vector<Element>& elements,
                          void (*append)(std::string&, const Element&),
                          const std::optional<std::uint32_t>& storedSize,
                          std::vector<std::size_t>& places) {
    if (elements.empty())
        return kNoBlock;
    const std::size_t block = out.size();
    if (block >= kNoBlock)
        throw std::length_error("class.vd grows beyond 32-bit offsets");
    appendNumber(out, std::uint32_t{0});
    places.reserve(elements.size());
    for (const Element& element : elements) {
        places.push_back(out.size());
        append(out, element);
    }
    const auto size = static_cast<std::uint32_t>(out.size() - block - sizeof(std::uint32_t));
    putNumber(out, block, storedSize.value_or(size));
    return static_cast<std::uint32_t>(block);
}

// The parts of a security, in stored order.
void appendIdentity(std::string& out, const Security& security) {
    appendNumber(out, security.sec_id);
    appendText(out, security.sec_code, 13);
    appendText(out, security.ISIN, 13);
    appendText(out, security.reg_number, 31);
    appendText(out, security.CFI, 7);
    appendNumber(out, static_cast<std::uint32_t>(security.names.size()));
    for (const Name& name : security.names) {
        appendNumber(out, name.lang);
        appendCounted(out, name.long_name);
        appendCounted(out, name.short_name);
    }
}

void appendTerms(std::string& out, const Security& security) {
    appendText(out, security.base_sec_code, 13);
    appendText(out, security.base_class_code, 13);
    appendNumber(out, security.sec_type);
    appendNumber(out, security.sec_subtype);
    appendNumber(out, security.list_level);
    appendNumber(out, security.specific_flags);
    appendNumber(out, security.min_step);
    appendNumber(out, security.face_value);
    appendText(out, security.face_unit, 13);
    appendNumber(out, security.scale);
    appendNumber(out, security.mat_date);
    appendNumber(out, security.lot_size);
    appendNumber(out, security.unnamedByte1);
    appendNumber(out, security.unnamedValue1);
    appendText(out, security.trade_currency, 13);
    appendNumber(out, security.option_strike);
    appendText(out, security.CCY1, 13);
    appendText(out, security.CCY2, 13);
    appendNumber(out, security.couponvalue);
    appendNumber(out, security.couponperiod);
    appendNumber(out, security.nextcoupon);
    appendNumber(out, security.buybackdate);
    appendNumber(out, security.buybackprice);
    appendNumber(out, security.yieldatprevwaprice);
    appendText(out, security.step_price_currency, 13);
    appendNumber(out, security.closeval);
}

void appendSubDescs(std::string& out, const std::vector<SubDesc>& subDescs) {
    appendNumber(out, static_cast<std::uint32_t>(subDescs.size()));
    for (const SubDesc& sub : subDescs) {
        appendText(out, sub.code1, 13);
        appendText(out, sub.code2, 13);
        appendText(out, sub.code3, 7);
        appendNumber(out, sub.value);
        appendNumber(out, sub.kind);
        appendNumber(out, sub.info);
    }
}

void appendForeignCodes(std::string& out, const Security& security) {
    appendText(out, security.stock_code, 13);
    appendText(out, security.sedol_code, 8);
    appendText(out, security.ric_code, 33);
    appendText(out, security.cusip_code, 10);
    appendText(out, security.stock_name, 33);
    appendText(out, security.bsid, 21);
    appendNumber(out, security.qtyScale);
    appendNumber(out, security.qty_scale_CCY1);
    appendNumber(out, security.qty_scale_CCY2);
    appendNumber(out, security.unnamedValue2);
    appendNumber(out, security.expdate);
    appendText(out, security.settleCode, 13);
    appendText(out, security.tickSizeTableId, 65);
    appendNumber(out, security.settleDate);
    appendNumber(out, security.accruedIntScale);
    appendNumber(out, security.accruedint);
    appendNumber(out, security.unnamedValue3);
    appendNumber(out, security.unnamedByte3);
    appendText(out, security.benchmark, 13);
}

} // namespace

std::string encodeClassHead(std::uint32_t classCount) {
    std::string out("CLASSES", kHeadTextSize);
    appendFill(out, out.size(), kHeadSize - kHeadTextSize);
    appendNumber(out, kVersion);
    appendNumber(out, classCount);
    appendFill(out, out.size(), kInfoSize - sizeof classCount);
    return out;
}

std::string encodeClassFile(const std::vector<ClassRecord>& classes, ClassFileLayout* layout) {
    const std::string recordTemplate = makeRecordTemplate();
    std::string out = encodeClassHead(static_cast<std::uint32_t>(classes.size()));
    for (const ClassRecord& source : classes) {
        const std::size_t at = out.size();
        out.append(recordTemplate);
        putRecord(out, at, source);
    }

    ClassFileLayout made;
    std::size_t at = kRecordsOffset;
    for (const ClassRecord& source : classes) {
        ClassRecordLayout& places = made.classes.emplace_back();
        places.record = at;
        const std::uint32_t securities =
            appendBlock(out, source.securities, &appendSecurity, source.storedSecuritiesSize,
                        places.securities);
        const std::uint32_t params =
            appendBlock(out, source.params, &appendParam, source.storedParamsSize, places.params);
        places.securitiesBlock = securities;
        places.paramsBlock = params;
        putNumber(out, at + classRecord::kSecuritiesOffset,
                  source.storedSecuritiesOffset.value_or(securities));
        putNumber(out, at + classRecord::kParamsOffset, source.storedParamsOffset.value_or(params));
        at += kClassRecordSize;
    }
    made.fileSize = out.size();
    if (layout)
        *layout = std::move(made);
    return out;
}

void appendParam(std::string& out, const Param& param) {
    appendNumber(out, param.par_id);
    appendNumber(out, param.flags);
    appendNumber(out, param.scale);
    appendText(out, param.db_name, 17);
    appendNumber(out, static_cast<std::uint32_t>(param.names.size()));
    for (const ParamName& name : param.names) {
        appendNumber(out, name.lang);
        appendCounted(out, name.long_name);
        appendCounted(out, name.short_name);
        appendCounted(out, name.enum_desc);
    }
    appendNumber(out, param.par_info);
    appendNumber(out, param.par_info_ex);
}

void appendSecurity(std::string& out, const Security& security) {
    appendIdentity(out, security);
    appendTerms(out, security);
    appendSubDescs(out, security.subDescs);
    appendForeignCodes(out, security);
}

std::string encodeParam(const Param& param) {
    std::string out;
    appendParam(out, param);
    return out;
}

std::string encodeSecurity(const Security& security) {
    std::string out;
    appendSecurity(out, security);
    return out;
}

} // namespace sample
