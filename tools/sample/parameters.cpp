// Making of the parameters of a class.

#include <string>

#include "sample/instruments.h"

namespace sample {

namespace {

struct ParamFacts {
    const char* name;
    bool isDouble;
    const char* english;
    const char* german;
    const char* enumeration; // in language 0; null for a number
};

constexpr ParamFacts kParams[] = {
    {"LAST", true, "Price of the last trade", "Letzter Preis", nullptr},
    {"BID", true, "Best bid", "Bestes Kaufgebot", nullptr},
    {"OFFER", true, "Best offer", "Bestes Verkaufsgebot", nullptr},
    {"OPEN", true, "Opening price",
     "Er\xF6"
     "ffnungspreis",
     nullptr},
    {"HIGH", true, "Highest price of the day",
     "H\xF6"
     "chster Preis",
     nullptr},
    {"LOW", true, "Lowest price of the day", "Tiefster Preis", nullptr},
    {"CLOSE", true, "Closing price", "Schlusspreis", nullptr},
    {"BIDDEPTH", false, "Demand at the best bid", "Nachfrage", nullptr},
    {"OFFERDEPTH", false, "Supply at the best offer", "Angebot", nullptr},
    {"NUMTRADES", false, "Number of trades today",
     "Anzahl Gesch\xE4"
     "fte",
     nullptr},
    {"VOLUME", false, "Quantity traded today", "Menge", nullptr},
    {"VALUE", true, "Turnover today", "Umsatz", nullptr},
    {"STATUS", false, "State of trading", "Handelsstatus", "0=closed;1=open;2=halted"},
    {"SESSION", false, "Trading session", "Sitzung", "0=none;1=main;2=evening;3=morning"},
    {"TIME", false, "Time of the last trade", "Zeit", nullptr},
    {"DIRECTION", false, "Side of the last trade", "Richtung", "1=buy;2=sell"},
    {"STEPPRICE", true, "Price of one step", "Preis eines Schrittes", nullptr},
    {"MARGINBUY", true, "Margin of a buyer", "Sicherheit des K\xE4ufers", nullptr},
    {"MARGINSELL", true, "Margin of a seller", "Sicherheit des Verk\xE4ufers", nullptr},
    {"VOLATILITY", true, "Implied volatility", "Volatilit\xE4t", nullptr},
    {"YIELD", true, "Yield at the last price", "Rendite", nullptr},
    {"DURATION", false, "Duration in days", "Laufzeit in Tagen", nullptr},
    {"PRICEMAX", true, "Upper price limit", "Obere Preisgrenze", nullptr},
    {"PRICEMIN", true, "Lower price limit", "Untere Preisgrenze", nullptr},
};
constexpr std::size_t kParamCount = sizeof kParams / sizeof kParams[0];

ParamName nameOf(std::uint16_t lang, const std::string& shortName, const char* longName,
                 const char* enumeration) {
    return {lang, shortName, longName, enumeration ? enumeration : ""};
}

} // namespace

std::vector<Param> makeParams(std::size_t classNumber, std::size_t count, Random& random) {
    std::vector<Param> made(count);
    for (std::size_t i = 0; i < count; ++i) {
        const ParamFacts& facts = kParams[(i + classNumber) % kParamCount];
        const std::size_t round = i / kParamCount;
        const std::string name = facts.name + (round ? std::to_string(round + 1) : std::string());
        Param& param = made[i];
        param.par_id =
            static_cast<std::uint16_t>((i + classNumber) % kParamCount + 1 + round * kParamCount);
        param.flags = static_cast<std::uint16_t>(random.below(128) * 2 + (facts.isDouble ? 1 : 0));
        param.scale = static_cast<std::uint16_t>(facts.isDouble ? random.below(7) : 0);
        param.db_name = name;
        param.names.push_back(nameOf(0, name, facts.english, facts.enumeration));
        param.names.push_back(
            nameOf(1, name + " (de)", facts.german, facts.enumeration ? "0=aus;1=an" : nullptr));
        param.par_info = static_cast<std::uint32_t>(random.below(1'000));
        param.par_info_ex = static_cast<std::uint32_t>(random.next() >> 33);
    }
    return made;
}

} // namespace sample
