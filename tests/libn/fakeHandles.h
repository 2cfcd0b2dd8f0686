// Files that no system knows: opens give made-up handles, and calls are noted.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "support/scopedCalls.h"

namespace fakeFiles {

// Closed handles and calls, as the replacements below note them.
struct Noted {
    std::vector<std::string> opens;
    std::vector<platform::StorageHandle> closed;
    std::vector<std::uint64_t> sizes;
    std::string bytes;
};
inline Noted noted;

// Handles that no system gave.
inline platform::StorageHandle handle(std::intptr_t number) {
    return reinterpret_cast<platform::StorageHandle>(number);
}

// Opens give the handles 1, 2, 3 ... while an object lives.
class FakeHandles {
  public:
    FakeHandles() {
        noted = {};
        platform::calls.openStorage = [](const char* path, platform::StorageAccess access) {
            noted.opens.push_back(describe(path, access));
            return handle(static_cast<std::intptr_t>(noted.opens.size()));
        };
        platform::calls.closeStorage = [](platform::StorageHandle file) {
            noted.closed.push_back(file);
            return false;
        };
    }

  private:
    static std::string describe(const char* path, platform::StorageAccess access) {
        const char* const dispositions[] = {"existing", "create", "always"};
        return std::string(path) + " " + dispositions[static_cast<int>(access.disposition)] +
               (access.writes ? " write" : " read") + (access.reads ? "" : " only") +
               (access.sharesWrite ? " shared" : " alone") +
               (access.sequential ? " sequential" : "");
    }

    ScopedCalls m_calls;
};

} // namespace fakeFiles
