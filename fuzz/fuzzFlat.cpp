// Fuzz target of flimit.vd and fclipos.vd: walks a file and compares the calls and every field with
// a plain loop over the bytes.
//
// Input: 1 byte of kind (odd: positions), 1 byte of how many records go by before the callback
// stops (255: none), 1 byte that it then returns, 1 byte that says how the length told at the start
// lies about the file (1: shorter, 2: longer, 3: longer than 32 bits hold, else not) and 1 byte of
// by how much.  The fault trailer of input.h applies; the rest is the file.

#include <cstring>
#include <string>
#include <vector>

#include "readerState.h"
#include "reference/flatFields.h"
#include "support/input.h"
#include "vdreader/readers.h"

namespace {

struct Walk {
    std::vector<std::string> records;
    std::size_t stopAfter = 255;
    std::int32_t stopResult = 1;
    std::string difference;
};
Walk walk;

template <class Record>
std::int32_t take(Record* record) {
    // Nothing but the record's own bytes may be read.
    std::string bytes(reference::sizeOf(record), '\0');
    std::memcpy(bytes.data(), static_cast<const void*>(record), bytes.size());
    if (walk.difference.empty())
        walk.difference = reference::fieldDifference(record, bytes);
    walk.records.push_back(std::move(bytes));
    return walk.records.size() > walk.stopAfter ? walk.stopResult : 1;
}

struct Outcome {
    std::vector<std::string> records;
    std::int32_t result = 1;
};

// Record by record, as the length at the start and the file's true end have it.
Outcome expected(std::string_view file, std::int64_t toldLength, std::size_t size) {
    Outcome outcome;
    std::int64_t remaining = static_cast<std::int32_t>(toldLength);
    while (remaining != 0 && file.size() >= size) {
        outcome.records.emplace_back(file.substr(0, size));
        file.remove_prefix(size);
        remaining -= static_cast<std::int64_t>(size);
        const std::int32_t answer = outcome.records.size() > walk.stopAfter ? walk.stopResult : 1;
        if (answer != 1) {
            outcome.result = answer == 2 ? 1 : 0;
            break;
        }
    }
    return outcome;
}

std::int64_t toldLength(std::size_t size, unsigned lie, unsigned amount) {
    const auto whole = static_cast<std::int64_t>(size);
    switch (lie & 3) {
        case 1:
            return whole > amount ? whole - amount : 0;
        case 2:
            return whole + amount * 3;
        case 3:
            return whole + (std::int64_t{amount} << 31);
        default:
            return whole;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static fuzzing::MemoryFiles files;
    if (size < 5)
        return 0;
    const fuzzing::Input input = fuzzing::splitInput(data + 5, size - 5);
    const bool positions = (data[0] & 1) != 0;
    walk = {};
    walk.stopAfter = data[1] == 255 ? SIZE_MAX : data[1];
    walk.stopResult = static_cast<std::int8_t>(data[2]);
    const std::int64_t told = toldLength(input.file.size(), data[3], data[4]);
    files.put("walked.vd", input.file);
    files.tellLength(told);
    files.plan(input.plan);

    readerState().lastError = "before";
    (positions ? readerState().futPositionsFile : readerState().futLimitsFile) = "walked.vd";
    const std::int32_t result =
        positions ? for_each_futposition(take<sFutPosition>) : for_each_futlimit(take<sFutLimit>);
    fuzzing::expectNoDifference(walk.difference);
    const Outcome wanted =
        expected(input.file, told, positions ? reference::kPositionSize : reference::kLimitSize);
    const std::string text = get_vdreader_error();
    if (files.failedCalls() == 0) {
        FUZZ_CHECK(result == wanted.result);
        FUZZ_CHECK(walk.records == wanted.records);
        FUZZ_CHECK(text == "before");
    } else if (input.plan.failingCall == 1) {
        FUZZ_CHECK(result == 0 && walk.records.empty());
        FUZZ_CHECK(text == (positions ? "fclipos file walked.vd can not be opened"
                                      : "flimits file walked.vd can not be opened"));
    } else {
        FUZZ_CHECK(text == "before");
    }
    return 0;
}
