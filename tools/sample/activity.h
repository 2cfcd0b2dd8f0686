// What goes on in an open market: latest values of securities, changes of them, and alerts.

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "sample/alertFile.h"
#include "sample/classFile.h"
#include "sample/dataFile.h"
#include "sample/random.h"

namespace sample {

// Firm and account of the account with that number from 0, as limits, positions and alerts have
// them: at most 12 characters.
std::string firmOf(std::size_t account);
std::string accountCode(std::size_t account);

// First values of a security of the class: each parameter below 128 has one, or now and then none,
// a double or a 32-bit integer by bit 0 of its flags.
Slot makeSlot(const ClassRecord& owner, Random& random);

// Changes up to six values in `slot`, which becomes the security's if it was empty, and gives the
// record that tells of them, without a number in dataField1: a bit in `mask` for each parameter,
// then the 32-bit values and the doubles in the order of the parameters.  dataField2 holds a date
// and dataField3 a time of that day, `tick` seconds after its opening, both as decimal digits.
Record makeChange(const ClassRecord& owner, std::uint32_t secId, std::uint64_t tick, Slot& slot,
                  Random& random);

// An alert with that number of an account, for up to four of the classes.  Every send type comes
// up, also such as readers do not know; so do empty parts and bodies of some kilobytes.
Alert makeAlert(std::size_t number, std::size_t accounts, const std::vector<ClassRecord>& classes,
                Random& random);

} // namespace sample
