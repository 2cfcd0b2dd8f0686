// Making of classes and securities.  Texts in language 1 hold single bytes above 127, since files
// in the field hold texts in the writer's own code page.

#include "sample/instruments.h"

#include <string>

namespace sample {

namespace {

struct KindFacts {
    const char* code;
    const char* title;
    const char* cfi;
    const char* english;
    const char* german;
};

constexpr KindFacts kKinds[] = {
    {"SHARE", "Shares", "ESVUFR", "ordinary shares", "Stammaktien"},
    {"FUTURE", "Futures", "FXXXSX", "future", "Terminkontrakt f\xFCr die B\xF6rse"},
    {"OPTION", "Options", "OXXFXX", "option on a future", "Option auf Terminkontrakt"},
    {"BOND", "Bonds", "DBFUFR", "bonds", "Schuldverschreibung"},
    {"FX", "Currencies", "MRCXXX", "currency pair", "W\xE4hrungspaar"},
    {"FUND", "Funds", "EUOXXX", "fund units", "Fondsanteile"},
};
constexpr std::size_t kKindCount = sizeof kKinds / sizeof kKinds[0];

constexpr const char* kPlaces[] = {"Northern", "Harbour", "Lakeside", "Old Mill", "Granite",
                                   "Silver",   "Upland",  "Meadow",   "Coastal",  "Summit"};
constexpr const char* kTrades[] = {"Shipyards", "Power", "Grain",  "Foundry", "Railways",
                                   "Telecom",   "Paper", "Quarry", "Savings", "Chemicals"};
constexpr const char* kCurrencies[] = {"EUR", "USD", "GBP", "CHF", "JPY", "SEK"};
constexpr std::uint32_t kDates[] = {20261215, 20270316, 20270615, 20270921, 20280315, 20310901};

// Four letters that no other number below 26^4 has, and the number of the round behind that.
std::string ticker(std::size_t number) {
    constexpr std::size_t kWords = 26 * 26 * 26 * 26;
    std::size_t word = number % kWords * 170'503 % kWords; // an odd factor without 13: one to one
    std::string text(4, 'A');
    for (char& letter : text) {
        letter = static_cast<char>('A' + word % 26);
        word /= 26;
    }
    if (number >= kWords)
        text += std::to_string(number / kWords);
    return text;
}

std::string padded(std::size_t number, std::size_t width) {
    std::string text = std::to_string(number);
    return text.size() < width ? std::string(width - text.size(), '0') + text : text;
}

// Twelve characters with the check digit that the numbering of securities asks for.
std::string isin(std::size_t number) {
    std::string text = "XS" + padded(number, 9);
    std::string digits;
    for (const char letter : text)
        digits += letter >= 'A' ? std::to_string(letter - 'A' + 10) : std::string(1, letter);
    int sum = 0;
    bool twice = true;
    for (auto digit = digits.rbegin(); digit != digits.rend(); ++digit, twice = !twice) {
        const int value = (*digit - '0') * (twice ? 2 : 1);
        sum += value / 10 + value % 10;
    }
    return text + static_cast<char>('0' + (10 - sum % 10) % 10);
}

std::string codeOf(Kind kind, const std::string& word, std::size_t number, Random& random) {
    switch (kind) {
        case Kind::Future:
            return word + "-" + std::to_string(1 + random.below(12)) + ".27";
        case Kind::Option: {
            const char* side = random.oneIn(2) ? "C" : "P"; // drawn before the strike, always
            return word + side + std::to_string(random.between(1, 999) * 100);
        }
        case Kind::Bond:
            return isin(number);
        case Kind::Currency:
            return word + "_TOM";
        default:
            return word;
    }
}

std::vector<Name> namesOf(const KindFacts& facts, const std::string& code, std::size_t count,
                          Random& random) {
    const std::string place = random.pick(kPlaces);
    const std::string trade = random.pick(kTrades);
    std::vector<Name> names(count);
    for (std::size_t lang = 0; lang < count; ++lang) {
        Name& name = names[lang];
        name.lang = static_cast<std::uint16_t>(lang);
        // Some short names are longer than a string keeps inside itself, most are not.
        const std::string hint = place.size() > 6 ? place + " " + trade : place;
        name.short_name = lang % 2 ? code + " (" + hint + ")" : trade + " " + code.substr(0, 4);
        name.long_name = place + " " + trade + ", " + (lang % 2 ? facts.german : facts.english);
        if (lang > 1)
            name.long_name += " / " + std::to_string(lang);
    }
    return names;
}

void setTerms(Security& security, Kind kind, Random& random) {
    const bool dated = kind == Kind::Future || kind == Kind::Option || kind == Kind::Bond;
    if (dated) {
        security.mat_date = random.pick(kDates);
        security.expdate = security.mat_date;
        security.settleDate = security.mat_date + 1;
    }
    if (kind == Kind::Bond) {
        security.face_value = 1000.0;
        security.couponvalue = random.money(100, 9000);
        security.couponperiod = static_cast<std::uint16_t>(random.oneIn(2) ? 182 : 91);
        security.nextcoupon = random.pick(kDates);
        security.buybackdate = random.oneIn(4) ? random.pick(kDates) : 0;
        security.buybackprice = security.buybackdate ? random.between(9500, 10500) : 0;
        security.yieldatprevwaprice = random.money(1, 1900);
        security.accruedint = random.between(0, 9000);
        security.accruedIntScale = 2;
        security.benchmark = "GOV" + std::to_string(random.between(2, 30)) + "Y";
    } else if (kind == Kind::Share || kind == Kind::Fund) {
        security.face_value = random.money(1, 10000);
        security.list_level = static_cast<std::uint16_t>(random.between(1, 3));
    } else if (kind == Kind::Option) {
        security.option_strike = random.between(1, 99999) * 100;
    }
}

void setForeignCodes(Security& security, std::size_t number, const std::string& word,
                     Random& random) {
    security.stock_code = word + ".S";
    security.sedol_code = "B" + padded(number % 1'000'000, 6);
    security.ric_code = word + ".XX";
    security.cusip_code = padded(number, 9);
    security.stock_name = word + " on the main board";
    security.bsid = "BS:" + word;
    security.settleCode = random.oneIn(3) ? "T0" : "T2";
    security.tickSizeTableId = "ticks-" + std::to_string(random.below(20));
    if (random.oneIn(8))
        security.subDescs.push_back({security.sec_code, word, "REPO", random.between(1, 100000),
                                     static_cast<std::int16_t>(random.between(-2, 5)),
                                     static_cast<std::int32_t>(random.between(-1, 1000))});
}

} // namespace

Kind kindOfClass(std::size_t classNumber) {
    return static_cast<Kind>(classNumber % kKindCount);
}

ClassRecord makeClass(std::size_t classNumber) {
    const KindFacts& facts = kKinds[classNumber % kKindCount];
    const std::string round = padded(classNumber / kKindCount + 1, 2);
    ClassRecord made;
    made.classId = static_cast<std::int32_t>(1000 + 17 * classNumber);
    made.classCode = facts.code + round;
    made.fh = std::string(facts.title) + " " + round + ", main hall";
    made.fl = std::string(facts.title) + " " + round + ", long list of fields";
    made.ch = std::string(facts.title) + " " + round;
    made.cl = std::string(facts.german) + " " + round;
    return made;
}

Security makeSecurity(Kind kind, std::size_t number, std::size_t names,
                      const ClassRecord* underlyingClass, const Security* underlying,
                      Random& random) {
    const KindFacts& facts = kKinds[static_cast<std::size_t>(kind)];
    const std::string word = ticker(number);
    Security made;
    made.sec_id = static_cast<std::uint32_t>(number + 1);
    made.sec_code = codeOf(kind, word, number, random);
    made.ISIN = isin(number);
    made.reg_number = "1-02-" + padded(number, 8) + "-A";
    made.CFI = facts.cfi;
    made.names = namesOf(facts, made.sec_code, names, random);
    if (underlying) {
        made.base_sec_code = underlying->sec_code;
        made.base_class_code = underlyingClass->classCode;
    }
    made.sec_type = static_cast<std::uint16_t>(static_cast<std::size_t>(kind) + 1);
    made.sec_subtype = static_cast<std::uint16_t>(random.below(4));
    made.specific_flags = static_cast<std::uint32_t>(random.next() >> 40);
    made.scale = static_cast<std::uint16_t>(random.below(7));
    made.min_step = static_cast<std::uint32_t>(random.oneIn(2) ? 1 : 5);
    made.face_unit = random.pick(kCurrencies);
    made.lot_size = static_cast<std::uint32_t>(random.oneIn(3) ? 1 : random.between(1, 100) * 10);
    made.unnamedByte1 = static_cast<std::uint8_t>(random.below(256));
    made.unnamedValue1 = random.between(-1000, 1'000'000);
    made.trade_currency = random.pick(kCurrencies);
    made.CCY1 = kind == Kind::Currency ? random.pick(kCurrencies) : "";
    made.CCY2 = kind == Kind::Currency ? made.trade_currency : "";
    made.step_price_currency = made.trade_currency;
    made.closeval = static_cast<std::uint32_t>(random.below(1'000'000));
    made.qtyScale = static_cast<std::uint16_t>(random.below(3));
    made.qty_scale_CCY1 = static_cast<std::uint16_t>(random.below(5));
    made.qty_scale_CCY2 = static_cast<std::uint16_t>(random.below(5));
    made.unnamedByte3 = static_cast<std::uint8_t>(random.below(2));
    setTerms(made, kind, random);
    setForeignCodes(made, number, word, random);
    return made;
}

} // namespace sample
