// The platform's table of libraries, put back at the end of a scope.  A test changes
// `platform::libraryCalls` freely in between.

#pragma once

#include "platform/library.h"

class ScopedLibraryCalls {
  public:
    ScopedLibraryCalls() : m_saved(platform::libraryCalls) {}
    ~ScopedLibraryCalls() { platform::libraryCalls = m_saved; }
    ScopedLibraryCalls(const ScopedLibraryCalls&) = delete;
    ScopedLibraryCalls& operator=(const ScopedLibraryCalls&) = delete;

    const platform::LibraryCalls& saved() const { return m_saved; }

  private:
    platform::LibraryCalls m_saved;
};
