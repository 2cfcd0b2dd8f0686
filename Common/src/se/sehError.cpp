// CSEHError from an exception record.

#include "se/sehError.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

CSEHError sehErrorOf(const sExceptionRecord& record) noexcept {
    char list[1024] = {};
    std::size_t used = 0;
    const std::size_t count =
        std::min<std::size_t>(record.parameterCount, std::size(record.parameters));
    for (std::size_t i = 0; i < count; ++i)
        used += static_cast<std::size_t>(
            std::snprintf(list + used, sizeof list - used, " 0x%016llX",
                          static_cast<unsigned long long>(record.parameters[i])));
    CSEHError error;
    error.code = static_cast<std::int32_t>(record.code);
    std::snprintf(error.text, sizeof error.text,
                  "Exception 0x%08X occurred at address 0x%08llX. Parameters:%s.", record.code,
                  static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(record.address)),
                  list);
    return error;
}
