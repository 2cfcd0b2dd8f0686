// Filling of the change record's buffer.

#include "CurData/changeRecord.h"

#include <algorithm>
#include <cstring>

#include "platform/calls.h"

namespace {

// Most records carry a few values: a call for each of their parts takes longer than the copying.
template <class Number>
void copyNumbers(char* to, const char* from, std::size_t count) {
    constexpr std::size_t kFew = 8;
    if (count > kFew) {
        std::memcpy(to, from, count * sizeof(Number));
        return;
    }
    for (const char* const end = from + count * sizeof(Number); from != end;
         from += sizeof(Number), to += sizeof(Number))
        std::memcpy(to, from, sizeof(Number));
}

} // namespace

void fillDynParams(const ENC_DATA& record, const JoinCode& classCode, const JoinCode& secCode,
                   sDynParams& out) {
    // All of it each time: a callback may have written anywhere.
    std::memset(&out, 0, sizeof out);
    out.dataField1 = record.dataField1;
    out.dataField2 = record.dataField2;
    std::memcpy(out.class_code, classCode.text, JoinCode::kLimit);
    std::memcpy(out.sec_code, secCode.text, JoinCode::kLimit);
    out.dataField3 = record.dataField3;
    out.longCount = record.longCount;
    out.doubleCount = record.doubleCount;
    out.maskSize = record.maskSize;
    out.sec_id = record.sec_id;

    const char* payload = reinterpret_cast<const char*>(&record) + sizeof record;
    if (record.maskSize == sizeof out.mask)
        std::memcpy(out.mask, payload, sizeof out.mask);
    else if (record.maskSize < sizeof out.mask)
        std::memcpy(out.mask, payload, record.maskSize);
    else
        platform::calls.invalidParameter();
    payload += record.maskSize;
    constexpr std::size_t kMost = sizeof out.longs / sizeof out.longs[0];
    copyNumbers<std::int32_t>(reinterpret_cast<char*>(&out) + offsetof(sDynParams, longs), payload,
                              std::min<std::size_t>(record.longCount, kMost));
    payload += record.longCount * sizeof out.longs[0];
    copyNumbers<double>(reinterpret_cast<char*>(&out) + offsetof(sDynParams, doubles), payload,
                        std::min<std::size_t>(record.doubleCount, kMost));
}
