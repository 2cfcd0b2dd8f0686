// Another way to open libraries for libn::Dll, until the end of a scope.

#pragma once

#include <memory>
#include <string>

#include "../libn/src/openLibrary.h"

class ScopedOpening {
  public:
    using Open = std::unique_ptr<boost::dll::shared_library> (*)(const std::string& path);

    explicit ScopedOpening(Open open) : m_saved(libn::openLibrary) { libn::openLibrary = open; }
    ~ScopedOpening() { libn::openLibrary = m_saved; }
    ScopedOpening(const ScopedOpening&) = delete;
    ScopedOpening& operator=(const ScopedOpening&) = delete;

    // The way that Boost knows.
    static std::unique_ptr<boost::dll::shared_library> overBoost(const std::string& path) {
        return std::make_unique<boost::dll::shared_library>(
            path, boost::dll::load_mode::search_system_folders);
    }

  private:
    Open m_saved;
};
