// The made-up classes of a market: kinds of instruments, their securities and parameters.

#pragma once

#include <cstddef>
#include <vector>

#include "sample/classFile.h"
#include "sample/random.h"

namespace sample {

enum class Kind { Share, Future, Option, Bond, Currency, Fund };

// Kinds follow one another in the order above, again and again.
Kind kindOfClass(std::size_t classNumber);

// The class of that number from 0, with code, id and texts, and without parameters or securities.
ClassRecord makeClass(std::size_t classNumber);

// `count` parameters of a class, a mix of common ones first and numbered ones behind them.
std::vector<Param> makeParams(std::size_t classNumber, std::size_t count, Random& random);

// One security.  `number` from 0 counts through the whole market and makes codes and the id unique;
// `underlying` of `underlyingClass`, where not null, is what it is written on.
Security makeSecurity(Kind kind, std::size_t number, std::size_t names,
                      const ClassRecord* underlyingClass, const Security* underlying,
                      Random& random);

} // namespace sample
