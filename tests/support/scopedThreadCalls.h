// The platform's table of threads, put back at the end of a scope.  A test changes
// `platform::threadCalls` freely in between.

#pragma once

#include "platform/threadControl.h"

class ScopedThreadCalls {
  public:
    ScopedThreadCalls() : m_saved(platform::threadCalls) {}
    ~ScopedThreadCalls() { platform::threadCalls = m_saved; }
    ScopedThreadCalls(const ScopedThreadCalls&) = delete;
    ScopedThreadCalls& operator=(const ScopedThreadCalls&) = delete;

    const platform::ThreadCalls& saved() const { return m_saved; }

  private:
    platform::ThreadCalls m_saved;
};
