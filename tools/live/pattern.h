// Slots, records and alerts whose contents follow from one number, so that a reader can tell
// whether it saw one whole, a mixture of two, or bytes that nobody wrote.

#pragma once

#include <cstdint>
#include <optional>

#include "sample/alertFile.h"
#include "sample/dataFile.h"

namespace live {

// ---- slots ----

// The stored value of a parameter below 128 in the slot with that stamp: the bits of a finite
// double, unlike those of every other parameter and stamp.  Its low 32 bits are unlike those of
// every other parameter, and of every stamp with other low 25 bits.
std::uint64_t patternValue(std::uint32_t stamp, std::size_t param);

// A slot with all 128 parameters set to their pattern.
sample::Slot patternSlot(std::int32_t classId, std::uint32_t stamp);

// The stamp of 128 values of 8 bytes at any address, nothing if they are not of one slot.
std::optional<std::uint32_t> stampOf(const void* values);

// The same of single parameters as readers hand them out.
std::optional<std::uint32_t> stampOfDouble(double value, std::size_t param);
bool isLongOf(std::uint32_t stamp, std::size_t param, std::int32_t value);

// ---- records ----

// The record with that running number, of that security: dataField2 and dataField3, the sizes of
// mask, longs and doubles (0 to 16, 7 and 7) and every value follow from the number.
sample::Record patternRecord(std::int32_t number, std::uint32_t secId, std::int32_t classId);

// What readers hand out of a record.  Pointers need no alignment.
struct SeenRecord {
    std::int32_t dataField1;
    std::int32_t dataField2;
    std::int32_t dataField3;
    std::uint8_t maskSize;
    std::uint8_t longCount;
    std::uint8_t doubleCount;
    const void* mask;    // maskSize bytes
    const void* longs;   // longCount values of 4 bytes
    const void* doubles; // doubleCount values of 8 bytes
};

// Whether all of it is the pattern of its dataField1.
bool isPattern(const SeenRecord& seen);

// ---- alerts ----

// The alert with that number: all fields follow from it, parts of variable size are now and then
// empty and now and then larger than what a reader fetches at once.
sample::Alert patternAlert(std::uint64_t number);

} // namespace live
