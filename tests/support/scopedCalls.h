// The platform's table of calls, put back at the end of a scope.  A test changes `platform::calls`
// freely in between.

#pragma once

#include "platform/calls.h"

class ScopedCalls {
  public:
    ScopedCalls() : m_saved(platform::calls) {}
    ~ScopedCalls() { platform::calls = m_saved; }
    ScopedCalls(const ScopedCalls&) = delete;
    ScopedCalls& operator=(const ScopedCalls&) = delete;

    const platform::Calls& saved() const { return m_saved; }

  private:
    platform::Calls m_saved;
};
