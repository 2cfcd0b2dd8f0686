// What the stand-in for the service keeps of each notice.

#pragma once

#include <cstdint>

struct Notice {
    std::uint32_t destination;
    std::uint32_t what;
    unsigned char record[920];
};

// Exported as takenNotices: how many came, and the latest at most 16 of them.
using TakenNotices = std::uint32_t (*)(Notice* out);
