// docs/formats against the structures and the decoder.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <map>

#include "FutLimits/sFutLimit.h"
#include "FutPositions/sFutPosition.h"
#include "dwdata/ClassStorage.h"
#include "sample/classFile.h"
#include "support/formatDoc.h"
#include "support/tempFolder.h"

namespace {

struct Place {
    std::size_t offset;
    std::size_t size;
};
using Places = std::map<std::string, Place>;

#define PLACE(Record, field)                         \
  {                                                  \
#    field, {                                        \
      offsetof(Record, field), sizeof(Record::field) \
    }                                                \
  }

void expectSame(const std::vector<DocField>& documented, const Places& places) {
    EXPECT_EQ(documented.size(), places.size());
    for (const DocField& field : documented) {
        const auto place = places.find(field.name);
        ASSERT_NE(place, places.end()) << field.name;
        EXPECT_EQ(static_cast<std::size_t>(field.offset), place->second.offset) << field.name;
        EXPECT_EQ(static_cast<std::size_t>(field.size), place->second.size) << field.name;
    }
}

} // namespace

TEST(Formats, ClassRecordIsDocumented) {
    using R = STORE_CLASS_DESC;
    expectSame(docFields("class.md", "## Class record"),
               {PLACE(R, magic), PLACE(R, classId), PLACE(R, classCode), PLACE(R, fh), PLACE(R, fl),
                PLACE(R, ch), PLACE(R, cl), PLACE(R, paramsCount), PLACE(R, securitiesCount),
                PLACE(R, securitiesOffset), PLACE(R, paramsOffset)});
}

TEST(Formats, HeadOfTheClassFileIsDocumented) {
    const auto documented = docFields("class.md", "## File");
    ASSERT_EQ(documented.size(), 4u);
    // A head made by the document alone, every free byte set.
    std::string bytes;
    for (const DocField& field : documented) {
        ASSERT_EQ(field.offset, static_cast<long>(bytes.size())) << field.name;
        std::string value(static_cast<std::size_t>(field.size), 'x');
        const std::uint32_t number = field.name == "version" ? 15 : 0x01020304;
        if (field.name == "head")
            std::memcpy(value.data(), "CLASSES", 8);
        else if (field.name == "version" || field.name == "class count")
            std::memcpy(value.data(), &number, sizeof number);
        bytes += value;
    }
    const TempFolder folder;
    const ClassStorage storage(folder.write("class.vd", bytes).c_str());
    EXPECT_TRUE(storage.opened);
    EXPECT_EQ(storage.version, 15u);
    EXPECT_EQ(storage.classCount, 0x01020304u);
    EXPECT_EQ(storage.recordsStart, bytes.size());
}

TEST(Formats, FutLimitIsDocumented) {
    using R = sFutLimit;
    expectSame(docFields("flimit.md", ""), {PLACE(R, firmid),
                                            PLACE(R, trdaccid),
                                            PLACE(R, limit_type),
                                            PLACE(R, liquidity_coeff),
                                            PLACE(R, cbp_prev_limit),
                                            PLACE(R, cbplimit),
                                            PLACE(R, cbplused),
                                            PLACE(R, cbplplanned),
                                            PLACE(R, varmargin),
                                            PLACE(R, accruedint),
                                            PLACE(R, kgo),
                                            PLACE(R, cbplused_for_orders),
                                            PLACE(R, cbplused_for_positions),
                                            PLACE(R, options_premium),
                                            PLACE(R, net_options_value),
                                            PLACE(R, ts_comission),
                                            PLACE(R, currcode),
                                            PLACE(R, real_varmargin),
                                            PLACE(R, risk_level),
                                            PLACE(R, go_planned),
                                            PLACE(R, go_without_orders),
                                            PLACE(R, indicative_varmargin)});
}

TEST(Formats, FutPositionIsDocumented) {
    using R = sFutPosition;
    expectSame(
        docFields("fclipos.md", ""),
        {PLACE(R, firmid), PLACE(R, trdaccid), PLACE(R, seccode), PLACE(R, start_buy),
         PLACE(R, start_sell), PLACE(R, start_net), PLACE(R, today_buy), PLACE(R, today_sell),
         PLACE(R, total_net), PLACE(R, open_buys), PLACE(R, open_sells), PLACE(R, cbplplanned),
         PLACE(R, varmargin), PLACE(R, avrposnprice), PLACE(R, positionvalue),
         PLACE(R, total_varmargin), PLACE(R, real_varmargin), PLACE(R, premium)});
}

// ---- the streamed descriptors: every documented field is found where the decoder puts it ----

namespace {

#define FIELD(Type, field)                                                                         \
  {                                                                                                \
#    field,                                                                                        \
        [](const Type&                                                                             \
               d) { return std::string(reinterpret_cast<const char*>(&d.field), sizeof d.field); } \
  }
template <class Type>
using Fields = std::map<std::string, std::string (*)(const Type&)>;

const Fields<PARAMS_DESC> kParamFields = {
    FIELD(PARAMS_DESC, par_id),  FIELD(PARAMS_DESC, flags),    FIELD(PARAMS_DESC, scale),
    FIELD(PARAMS_DESC, db_name), FIELD(PARAMS_DESC, par_info), FIELD(PARAMS_DESC, par_info_ex)};

#define S(field) FIELD(SECURITY_DESC, field)
// clang-format off
const Fields<SECURITY_DESC> kSecurityFields = {
    S(sec_id), S(sec_code), S(ISIN), S(reg_number), S(CFI), S(base_sec_code), S(base_class_code),
    S(sec_type), S(sec_subtype), S(list_level), S(specific_flags), S(min_step), S(face_value),
    S(face_unit), S(scale), S(mat_date), S(lot_size), S(unnamedByte1), S(unnamedValue1),
    S(trade_currency), S(option_strike), S(CCY1), S(CCY2), S(couponvalue), S(couponperiod),
    S(nextcoupon), S(buybackdate), S(buybackprice), S(yieldatprevwaprice), S(step_price_currency),
    S(closeval), S(stock_code), S(sedol_code), S(ric_code), S(cusip_code), S(stock_name), S(bsid),
    S(qtyScale), S(qty_scale_CCY1), S(qty_scale_CCY2), S(unnamedValue2), S(expdate),
    S(settleCode), S(tickSizeTableId), S(settleDate), S(accruedIntScale), S(accruedint),
    S(unnamedValue3), S(unnamedByte3), S(benchmark)};
// clang-format on
#undef S

const Fields<SECURITY_SUBDESC> kSubDescFields = {
    FIELD(SECURITY_SUBDESC, code1), FIELD(SECURITY_SUBDESC, code2), FIELD(SECURITY_SUBDESC, code3),
    FIELD(SECURITY_SUBDESC, value), FIELD(SECURITY_SUBDESC, kind),  FIELD(SECURITY_SUBDESC, info)};

// The stored form of a descriptor as the document has it: each field filled with a byte of its own,
// each count as given.
std::string storedForm(const std::vector<DocField>& fields, std::uint32_t count) {
    std::string bytes;
    char fill = 1;
    for (const DocField& field : fields) {
        if (field.name.rfind("number of", 0) == 0)
            bytes.append(reinterpret_cast<const char*>(&count), sizeof count);
        else
            bytes.append(static_cast<std::size_t>(field.size), fill);
        ++fill;
    }
    return bytes;
}

template <class Type>
void expectFilled(const std::vector<DocField>& documented, const Fields<Type>& fields,
                  const Type& decoded) {
    std::size_t named = 0;
    char fill = 1;
    for (const DocField& field : documented) {
        if (field.name.rfind("number of", 0) != 0) {
            const auto found = fields.find(field.name);
            ASSERT_NE(found, fields.end()) << field.name;
            EXPECT_EQ(found->second(decoded),
                      std::string(static_cast<std::size_t>(field.size), fill))
                << field.name;
            ++named;
        }
        ++fill;
    }
    EXPECT_EQ(named, fields.size());
}

// A class file whose one record points to one block of each kind with these bytes.
struct BlockFile {
    TempFolder folder;
    SecurityVector securities;
    ParamVector params;

    BlockFile(const std::string& securitiesBlock, const std::string& paramsBlock) {
        sample::ClassRecord record;
        record.storedSecuritiesCount = 1;
        record.storedParamsCount = 1;
        const std::uint32_t end = 145 + sizeof(STORE_CLASS_DESC);
        record.storedSecuritiesOffset = end;
        record.storedParamsOffset = end + 4 + static_cast<std::uint32_t>(securitiesBlock.size());
        const std::string name =
            folder.write("class.vd", sample::encodeClassFile({record}) + std::string(4, 's') +
                                         securitiesBlock + std::string(4, 'p') + paramsBlock);
        ClassStorage storage(name.c_str());
        STORE_CLASS_DESC desc;
        EXPECT_TRUE(storage.nextRecord(desc));
        storage.readSecurities(desc, securities);
        storage.readParams(desc, params);
    }
};

} // namespace

TEST(Formats, StoredParameterIsDocumented) {
    const auto documented = docFields("class.md", "### Parameter");
    const BlockFile file(std::string(500, '\0'), storedForm(documented, 0));
    expectFilled(documented, kParamFields, file.params.at(0));
}

TEST(Formats, StoredSecurityIsDocumented) {
    auto documented = docFields("class.md", "### Security");
    // The last table of the section is that of the sub-descriptors.
    const std::size_t fields = documented.size() - kSubDescFields.size();
    const std::vector<DocField> subDesc(documented.begin() + static_cast<long>(fields),
                                        documented.end());
    documented.resize(fields);
    std::string bytes = storedForm(documented, 0);
    const BlockFile plain(bytes, std::string(35, '\0'));
    expectFilled(documented, kSecurityFields, plain.securities.at(0));

    // The same with one sub-descriptor in its place, behind its count.
    std::size_t at = 0;
    for (const DocField& field : documented) {
        at += static_cast<std::size_t>(field.size);
        if (field.name == "number of sub-descriptors")
            break;
    }
    bytes[at - 4] = 1;
    bytes.insert(at, storedForm(subDesc, 0));
    const BlockFile withOne(bytes, std::string(35, '\0'));
    expectFilled(documented, kSecurityFields, withOne.securities.at(0));
    expectFilled(subDesc, kSubDescFields, withOne.securities.at(0).subDescs.at(0));
}
