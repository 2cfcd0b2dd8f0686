// Places of virtual operations.

#pragma once

#include <cstddef>
#include <cstring>

// The place of a virtual operation among those of its class, from 0; the two entries of a
// destructor count.  Both targets keep a pointer to a virtual member as the place in bytes, plus 1.
template <class Member>
int slotOf(Member member) {
    std::ptrdiff_t place = 0;
    std::memcpy(&place, &member, sizeof place);
    return static_cast<int>((place - 1) / static_cast<std::ptrdiff_t>(sizeof(void*)));
}
