// A made-up market whose files agree with one another: classes of shares, bonds, futures, options
// and currencies, their latest values and changes, alerts, and futures limits and positions of
// accounts in them.
//
// The same options give the same bytes on every system: the numbers come from a generator of our
// own and no floating result depends on the C library.

#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "sample/alertFile.h"
#include "sample/classFile.h"
#include "sample/dataFile.h"
#include "sample/futuresFiles.h"

namespace sample {

struct MarketOptions {
    std::uint64_t seed = 1;
    std::size_t classes = 8;
    std::size_t securities = 1000;  // in all classes together, spread evenly
    std::size_t params = 40;        // of each class
    std::size_t names = 2;          // of each security, parameters always have 2
    std::size_t limits = 1000;      // records of flimit.vd
    std::size_t positions = 1000;   // records of fclipos.vd
    bool slots = true;              // whether securities have values before the first change
    std::size_t changes = 1000;     // records in the journal of data.vd
    std::size_t alerts = 1000;      // records of alert.vd
    std::uint32_t maxSecs = 50'000; // slots of data.vd, which takes 54 MB with as many as this
};

struct Market {
    std::vector<ClassRecord> classes;
    std::vector<FutLimit> limits;
    std::vector<FutPosition> positions;
    std::map<std::uint32_t, Slot> slots; // by sec_id, as they are behind the last change
    std::vector<Record> changes;
    std::vector<Alert> alerts;
    std::uint32_t maxSecs = 0;
};

// What holds of every market:
// - class ids, class codes, sec_ids and sec_codes are unique; codes have at most 12 characters;
// - languages count from 0, some long names and short names pass 15 characters;
// - parameters of both kinds (bit 0 of flags) and with and without enumeration texts are mixed;
// - the accounts of positions are accounts of limits, as far as there are limits, each under one
//   firm; positions are in securities of the futures and option classes, or of all classes where
//   there are no such, and there are none where there is no security.
// At most 100,000 classes, 4,000,000 securities, 60,000 parameters and 65,535 names each,
// 20,000,000 changes and alerts, and no securities without a class; otherwise std::length_error.
Market makeMarket(const MarketOptions& options);

// The securities of the market that data.vd has room for, in the order of the classes.  The
// pointers are good as long as the market's classes stay as they are.
struct ListedSecurity {
    const ClassRecord* owner;
    const Security* security;
};
std::vector<ListedSecurity> listedSecurities(const Market& market);

// data.vd with the market's slots and changes, its event pages filled as a server fills them.
DataFile makeDataFile(const Market& market);

} // namespace sample
