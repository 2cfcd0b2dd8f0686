// Looks at a file that a server lets grow at that moment.

#pragma once

#include <string_view>

#include "support/program.h"

namespace vdcat {

// Whether a failure tells of a file that grew between two steps of one look at it: the library's
// view of it ends where the file ended before.  The next look begins with the file as it is.
inline bool isOvertaken(std::string_view text) {
    return text.find("MappableStorageFile mapPtr") != std::string_view::npos;
}

// Calls `look`, and again each time that the server's growth of the file overtakes it.  A server
// lets a file grow by so much that a second look is rarely overtaken as well; a file that ends
// wrongly fails each time, and the last failure is let out.
template <class Look>
void lookBesideServer(Look look) {
    constexpr int kMostLooks = 10;
    for (int looks = 1;; ++looks) {
        try {
            return look();
        } catch (const tool::Failure& failure) {
            if (looks == kMostLooks || !isOvertaken(failure.what()))
                throw;
        }
    }
}

} // namespace vdcat
