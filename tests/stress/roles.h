// What a process of the stress tests can do: one side of a file that two processes have open.
//
// Each role prints one line of numbers and gives the exit code of the process: 0, or 1 where it saw
// what must not be.  A reading role looks for `seconds` and then goes on until it has seen enough,
// since how much that is in some seconds is a matter of the machine.  A writing role goes on until
// the test stops it; not to be stopped within `seconds` is a failure.

#pragma once

#include <chrono>
#include <string>

// Slots that are written and read all the time.
inline constexpr unsigned kHotSlots = 4;
inline constexpr int kThreads = 4;

// What a writing role on PATH looks for: PATH and this, a file that stops it.
inline constexpr const char* kStopSuffix = ".stop";

struct Span {
    explicit Span(double seconds)
        : end(std::chrono::steady_clock::now() +
              std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                  std::chrono::duration<double>(seconds))) {}
    bool lasts() const { return std::chrono::steady_clock::now() < end; }

    std::chrono::steady_clock::time_point end;
};

// How long a reading role goes on: a minute beyond its time where it has not seen enough by then.
class Reading {
  public:
    explicit Reading(double seconds) : m_least(seconds), m_most(seconds + 60) {}
    bool goesOn(bool sawEnough) const { return sawEnough ? m_least.lasts() : m_most.lasts(); }

  private:
    Span m_least;
    Span m_most;
};

// How long a writing role goes on.
class Writing {
  public:
    Writing(const std::string& path, double seconds)
        : m_stop(path + kStopSuffix), m_span(seconds) {}
    bool goesOn();

    // The exit code: whether it was stopped in time.
    int result() const { return m_stopped ? 0 : 1; }

  private:
    std::string m_stop;
    Span m_span;
    bool m_stopped = false;
};

// Four threads write whole slots, one after the other, with or without the slot's lock.
int writeSlots(const std::string& file, double seconds, bool locked);

// Four threads read slots and single values: "slots N torn T values N torn T changes C".  With
// `expectTorn` a torn one is what is to be seen.
int readSlots(const std::string& file, double seconds, bool expectTorn);

// Takes the lock of the slot and ends the process with it held.
int holdSlot(const std::string& file, unsigned index);

// Appends records, fewer and fewer in a second: "records N pages P".
int appendRecords(const std::string& file, double seconds);

// Walks the journal again and again, through the C interface and through an iterator: each record
// whole, once and in order, all that earlier walks saw among them; of a `still` file without any
// gap.  "walks N records N further N", the last of those walks that saw more than any before.
int walkJournal(const std::string& folder, double seconds, bool still);

// Appends alerts, fewer and fewer in a second: "alerts N".
int appendAlerts(const std::string& file, double seconds);

// Walks all alerts again and again, each of them compared field by field.  A walk may end early
// when the writer grows the file meanwhile: "walks N alerts N further N overtaken N".
int walkAlerts(const std::string& folder, double seconds);
