// A market's classes with their securities, then the accounts' limits and positions in them.

#include "sample/market.h"

#include <algorithm>
#include <stdexcept>
#include <string>

#include "sample/activity.h"
#include "sample/instruments.h"
#include "sample/random.h"

namespace sample {

namespace {

constexpr std::size_t kMaxClasses = 100'000;
constexpr std::size_t kMaxSecurities = 4'000'000;
constexpr std::size_t kMaxParams = 60'000; // ids are 16-bit
constexpr std::size_t kMaxNames = 65'535;
constexpr std::size_t kLimitTypes = 3;
constexpr std::size_t kMaxChanges = 20'000'000;
constexpr std::size_t kMaxAlerts = 20'000'000;

// Each part of the market draws from its own sequence, so that asking for more securities does not
// change the limits.
enum class Stream : std::uint64_t {
    Securities = 1,
    Params,
    Limits,
    Positions,
    Slots,
    Changes,
    Alerts
};

Random streamOf(std::uint64_t seed, Stream stream) {
    Random mixed(seed);
    return Random(mixed.next() ^ (static_cast<std::uint64_t>(stream) << 56));
}

// The class that securities of this kind are written on: the nearest one before it of the kind that
// underlies it, or null.
const ClassRecord* underlyingOf(const std::vector<ClassRecord>& classes, Kind kind) {
    if (kind != Kind::Future && kind != Kind::Option)
        return nullptr;
    const Kind wanted = kind == Kind::Option ? Kind::Future : Kind::Share;
    for (std::size_t i = classes.size(); i-- > 0;) {
        if (kindOfClass(i) == wanted)
            return classes[i].securities.empty() ? nullptr : &classes[i];
    }
    return nullptr;
}

void makeClasses(Market& market, const MarketOptions& options) {
    Random random = streamOf(options.seed, Stream::Securities);
    Random paramRandom = streamOf(options.seed, Stream::Params);
    std::size_t number = 0;
    market.classes.reserve(options.classes);
    for (std::size_t i = 0; i < options.classes; ++i) {
        const Kind kind = kindOfClass(i);
        const ClassRecord* base = underlyingOf(market.classes, kind);
        ClassRecord made = makeClass(i);
        made.params = makeParams(i, options.params, paramRandom);
        const std::size_t count = options.securities / options.classes +
                                  (i < options.securities % options.classes ? 1 : 0);
        made.securities.reserve(count);
        for (std::size_t k = 0; k < count; ++k) {
            const Security* underlying =
                base ? &base->securities[random.below(base->securities.size())] : nullptr;
            made.securities.push_back(
                makeSecurity(kind, number++, options.names, base, underlying, random));
        }
        market.classes.push_back(std::move(made));
    }
}

std::size_t accountsOf(const MarketOptions& options) {
    const std::size_t records = options.limits ? options.limits : options.positions;
    return std::max<std::size_t>(1, (records + kLimitTypes - 1) / kLimitTypes);
}

FutLimit makeLimit(std::size_t number, Random& random) {
    const std::size_t account = number / kLimitTypes;
    // Sums in hundredths, so that limit, used and planned agree to the last digit.
    const std::int64_t limit = random.between(1'000'000, 900'000'000);
    const std::int64_t orders = random.between(0, limit / 4);
    const std::int64_t positions = random.between(0, limit / 2);
    const std::int64_t used = orders + positions;
    FutLimit made;
    made.firmid = firmOf(account);
    made.trdaccid = accountCode(account);
    made.limit_type = static_cast<std::uint16_t>(number % kLimitTypes);
    made.liquidity_coeff = static_cast<double>(random.between(50, 100)) / 100.0;
    made.cbp_prev_limit = random.money(1'000'000, 900'000'000);
    made.cbplimit = static_cast<double>(limit) / 100.0;
    made.cbplused = static_cast<double>(used) / 100.0;
    made.cbplplanned = static_cast<double>(limit - used) / 100.0;
    made.varmargin = random.money(-5'000'000, 5'000'000);
    made.accruedint = random.money(0, 100'000);
    made.kgo = static_cast<double>(random.between(50, 300)) / 100.0;
    made.cbplused_for_orders = static_cast<double>(orders) / 100.0;
    made.cbplused_for_positions = static_cast<double>(positions) / 100.0;
    made.options_premium = random.money(-100'000, 100'000);
    made.net_options_value = random.money(-100'000, 100'000);
    made.ts_comission = random.money(0, 50'000);
    made.currcode = number % kLimitTypes == 2 ? "USD" : "EUR";
    made.real_varmargin = made.varmargin;
    made.risk_level = static_cast<std::uint32_t>(random.below(4));
    made.go_planned = random.money(0, 10'000'000);
    made.go_without_orders = random.money(0, 10'000'000);
    made.indicative_varmargin = random.money(-5'000'000, 5'000'000);
    return made;
}

FutPosition makePosition(std::size_t account, const Security& security, Random& random) {
    FutPosition made;
    made.firmid = firmOf(account);
    made.trdaccid = accountCode(account);
    made.seccode = security.sec_code;
    made.start_buy = static_cast<std::int32_t>(random.between(0, 500));
    made.start_sell = static_cast<std::int32_t>(random.between(0, 500));
    made.start_net = made.start_buy - made.start_sell;
    made.today_buy = static_cast<std::int32_t>(random.between(0, 200));
    made.today_sell = static_cast<std::int32_t>(random.between(0, 200));
    made.total_net = made.start_net + made.today_buy - made.today_sell;
    made.open_buys = static_cast<std::int32_t>(random.between(0, 50));
    made.open_sells = static_cast<std::int32_t>(random.between(0, 50));
    const std::int64_t price = random.between(100, 20'000'000); // hundredths
    made.avrposnprice = static_cast<double>(price) / 100.0;
    made.positionvalue = static_cast<double>(price * made.total_net) / 100.0;
    made.cbplplanned = random.money(0, 90'000'000);
    const std::int64_t margin = random.between(-5'000'000, 5'000'000);
    made.varmargin = static_cast<double>(margin) / 100.0;
    made.total_varmargin = static_cast<double>(margin + random.between(-500'000, 500'000)) / 100.0;
    made.real_varmargin = made.varmargin;
    made.premium = random.money(-100'000, 100'000);
    return made;
}

void makeSlots(Market& market, std::uint64_t seed) {
    Random random = streamOf(seed, Stream::Slots);
    for (const ListedSecurity& listed : listedSecurities(market)) {
        Slot slot = makeSlot(*listed.owner, random);
        if (!random.oneIn(16))
            market.slots.emplace(listed.security->sec_id, slot);
    }
}

void makeChanges(Market& market, const MarketOptions& options) {
    const std::vector<ListedSecurity> listed = listedSecurities(market);
    if (listed.empty())
        return;
    Random random = streamOf(options.seed, Stream::Changes);
    market.changes.reserve(options.changes);
    for (std::size_t i = 0; i < options.changes; ++i) {
        const ListedSecurity& chosen = listed[random.below(listed.size())];
        const std::uint32_t id = chosen.security->sec_id;
        Record record = makeChange(*chosen.owner, id, i, market.slots[id], random);
        record.dataField1 = static_cast<std::int32_t>(i + 1);
        market.changes.push_back(std::move(record));
    }
}

void makeAlerts(Market& market, const MarketOptions& options) {
    Random random = streamOf(options.seed, Stream::Alerts);
    market.alerts.reserve(options.alerts);
    for (std::size_t i = 0; i < options.alerts; ++i)
        market.alerts.push_back(makeAlert(i, accountsOf(options), market.classes, random));
}

// What positions are held in: futures and options, or everything where there is neither.
std::vector<const Security*> heldSecurities(const Market& market) {
    std::vector<const Security*> derivatives;
    std::vector<const Security*> all;
    for (std::size_t i = 0; i < market.classes.size(); ++i) {
        const Kind kind = kindOfClass(i);
        for (const Security& security : market.classes[i].securities) {
            all.push_back(&security);
            if (kind == Kind::Future || kind == Kind::Option)
                derivatives.push_back(&security);
        }
    }
    return derivatives.empty() ? all : derivatives;
}

void checkSizes(const MarketOptions& options) {
    if (options.classes > kMaxClasses || options.securities > kMaxSecurities ||
        options.params > kMaxParams || options.names > kMaxNames || options.changes > kMaxChanges ||
        options.alerts > kMaxAlerts)
        throw std::length_error("the market is too large");
    if (options.classes == 0 && options.securities != 0)
        throw std::length_error("securities need a class");
}

} // namespace

std::vector<ListedSecurity> listedSecurities(const Market& market) {
    std::vector<ListedSecurity> listed;
    for (const ClassRecord& owner : market.classes)
        for (const Security& security : owner.securities)
            if (security.sec_id < market.maxSecs)
                listed.push_back({&owner, &security});
    return listed;
}

DataFile makeDataFile(const Market& market) {
    DataFile file;
    file.header.maxSecs = market.maxSecs;
    file.slots = market.slots;
    file.eventPages = packRecords(market.changes, file.header.eventPageSize);
    file.header.elements = static_cast<std::int32_t>(market.slots.size());
    return file;
}

Market makeMarket(const MarketOptions& options) {
    checkSizes(options);
    Market market;
    market.maxSecs = options.maxSecs;
    makeClasses(market, options);
    if (options.slots)
        makeSlots(market, options.seed);
    makeChanges(market, options);
    makeAlerts(market, options);

    Random random = streamOf(options.seed, Stream::Limits);
    market.limits.reserve(options.limits);
    for (std::size_t i = 0; i < options.limits; ++i)
        market.limits.push_back(makeLimit(i, random));

    const std::vector<const Security*> held = heldSecurities(market);
    const std::size_t accounts = accountsOf(options);
    if (held.empty())
        return market;
    random = streamOf(options.seed, Stream::Positions);
    market.positions.reserve(options.positions);
    for (std::size_t i = 0; i < options.positions; ++i) {
        const std::size_t account = i % accounts;
        const Security& security = *held[(i / accounts + account * 7) % held.size()];
        market.positions.push_back(makePosition(account, security, random));
    }
    return market;
}

} // namespace sample
