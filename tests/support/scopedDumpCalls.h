// The table of dump calls, put back at the end of a scope.

#pragma once

#include "platform/dumpWriter.h"

class ScopedDumpCalls {
  public:
    ScopedDumpCalls() : m_saved(platform::dumpCalls) {}
    ~ScopedDumpCalls() { platform::dumpCalls = m_saved; }
    ScopedDumpCalls(const ScopedDumpCalls&) = delete;
    ScopedDumpCalls& operator=(const ScopedDumpCalls&) = delete;

    const platform::DumpCalls& saved() const { return m_saved; }

  private:
    platform::DumpCalls m_saved;
};
