// What vdcat should say of the records that the sample writer encoded, field by field.

#pragma once

#include <boost/json.hpp>
#include <string>
#include <string_view>

#include "sample/market.h"

namespace toolTest {

// All fields of a record under the names of the getters.  `lang` chooses a name entry.
boost::json::object expectedClass(const sample::ClassRecord& record);
boost::json::object expectedSecurity(const sample::ClassRecord& record,
                                     const sample::Security& security, std::uint16_t lang);
boost::json::object expectedParam(const sample::ClassRecord& record, std::size_t index,
                                  std::uint16_t lang);
// `slot` is null for a security without values.
boost::json::object expectedLast(const sample::ClassRecord& record,
                                 const sample::Security& security, const sample::Slot* slot);
boost::json::object expectedChange(const sample::ClassRecord& record,
                                   const sample::Security& security, const sample::Record& change);
boost::json::object expectedAlert(const sample::Alert& alert, std::size_t number);
boost::json::object expectedLimit(const sample::FutLimit& limit);
boost::json::object expectedPosition(const sample::FutPosition& position);

// Whether both hold the same names in any order with equal values; numbers are compared as
// numbers.  Each difference is a failed expectation.
void expectSameFields(const boost::json::object& shown, const boost::json::object& expected);

// Two lower-case digits a byte.
std::string hexOf(std::string_view bytes);

// Single bytes above 127 as the characters of their number.
std::string fromLatin1(const std::string& text);

} // namespace toolTest
