// What the tests of the tracers share: a program's folder with a sarn.ini, which is the current
// one, and the lines of single cycles.

#pragma once

#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/capturedLog.h"
#include "support/programFolder.h"
#include "vdreader/log.h"
#include "vdreader/logfiles.h"

using Lines = std::vector<std::string>;

class TracerFixture : public testing::Test {
  protected:
    TracerFixture() {
        m_folder.enter("");
        event("the line buffer of this thread"); // so that nobody traces it
        m_log.clear();
    }
    ~TracerFixture() { shutdown_logs(); }

    void ini(const std::string& text) const { m_folder.write("sarn.ini", text); }

    Lines events() const { return m_log.messages(CapturedLog::events); }

    // The lines of one cycle of a monitor, on this thread.  The settings have a period of 0.
    template <class Monitor>
    Lines cycleOf(const std::string& settings) {
        ini(settings);
        m_log.clear();
        Monitor monitor;
        monitor.run();
        return events();
    }

    ProgramFolder m_folder;
    CapturedLog m_log;
};
