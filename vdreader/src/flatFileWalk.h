// Walks over flat files: records of one fixed size without a header.

#pragma once

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "platform/calls.h"
#include "readerFrame.h"
#include "vdreader/raise.h"

// Calls `callback` with each record of the file as it is now, in one buffer for all of them, until
// the end, a short record or a callback's result.  `openFailure` takes the file's name.
template <class Record>
std::int32_t walkFlatFile(const std::string& file, const char* openFailure,
                          std::int32_t (*callback)(Record*)) {
    using platform::calls;
    // No more is read ahead than has been walked, but for a first small block, so a file which
    // shrinks under the walk ends it soon.  Large blocks save a quarter of a long walk.
    constexpr std::int64_t kSize = sizeof(Record);
    constexpr std::int64_t kLeastRecords = (16 * 1024) / kSize;
    constexpr std::int64_t kMostRecords = (1024 * 1024) / kSize;
    const auto block = std::make_unique_for_overwrite<char[]>(kMostRecords * kSize);

    // Deliberate: the stream stays open.  A walk costs one stream of the process for good; hosts
    // walk at start-up and rely on the file staying held.
    std::FILE* stream = calls.openStream(file.c_str());
    if (stream == nullptr)
        dwraise_ex(__FILE__, __LINE__, openFailure, file.c_str());
    // One call for each block; a buffer of the stream would only copy everything once more.
    std::setvbuf(stream, nullptr, _IONBF, 0);
    calls.seekStream(stream, 0, SEEK_END);
    // Deliberate: the length wraps at 32 bits.  Only a length of exactly 0 ends the walk early, so
    // a wrapped one runs to the end of the file or stops short, as older readers of the file do.
    std::int64_t remaining = static_cast<std::int32_t>(calls.tellStream(stream));
    calls.seekStream(stream, 0, SEEK_SET);

    Record record;
    std::int64_t walked = 0;
    while (remaining != 0) {
        // A rest of less than a record asks for a whole one, which a file that has grown may give.
        const std::int64_t whole =
            remaining > 0 ? std::max<std::int64_t>(remaining / kSize, 1) : kMostRecords;
        const std::int64_t wanted =
            std::min(whole, std::clamp(walked, kLeastRecords, kMostRecords));
        const auto got = static_cast<std::int64_t>(
            calls.readStream(block.get(), kSize, static_cast<std::size_t>(wanted), stream));
        for (std::int64_t i = 0; i < got; ++i) {
            remaining -= kSize;
            std::memcpy(&record, block.get() + i * kSize, sizeof record);
            const std::int32_t result = callback(&record);
            if (result == kStop)
                return 1;
            if (result != kGoOn)
                return 0;
        }
        walked += got;
        if (got < wanted)
            break;
    }
    return 1;
}
