// What the library makes while it loads, in the order in which it is made.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <ios>
#include <mutex>
#include <vector>

#include "diagnostics/trafficTracer.h"
#include "libn/LocaleTable.h"
#include "platform/calls.h"
#include "platform/startUp.h"
#include "readerState.h"

// Buckets, their lock and the moment of the load.  Deliberate: nothing of the library looks in
// them.  Components of the family read the stamps of a module in a dump to tell how long it had
// run.
struct LoadTable {
    static constexpr std::size_t kBuckets = 1009;

    LoadTable();

    std::mutex lock;
    std::array<std::vector<void*>, kBuckets> buckets;
    std::int64_t loadedAt;           // nanoseconds of platform::monotonicNanoseconds()
    platform::WallTime loadedAtWall; // of the wall clock
};

// One object for the process.  Its fields are made in this order and go in the reverse one; what
// stands behind the functions that it calls goes after it, or lives as long as the process.
class StartUp {
  public:
    // What belongs to the readers and the base services, in front of the keys.
    struct Earlier {
        Earlier();
        ReaderState& readers;
        const LocaleTable& locales;
    };
    // What belongs to the diagnostics, behind the sockets.
    struct Diagnostics {
        Diagnostics();
        ~Diagnostics();
        std::recursive_mutex& lock;
        TrafficSums& incoming;
        TrafficSums& outgoing;
    };

    StartUp();

    const Earlier& earlier() const { return m_earlier; }
    const platform::ThreadKeys& threadKeys() const { return m_keys; }
    const platform::SocketLibrary& socketLibrary() const { return m_sockets; }
    const Diagnostics& diagnostics() const { return m_diagnostics; }
    LoadTable& loadTable() { return m_table; }

  private:
    std::ios_base::Init m_streams;
    Earlier m_earlier;
    // The file system library looks its functions up by an initialiser of its own.
    platform::ThreadKeys m_keys;
    platform::SocketLibrary m_sockets;
    Diagnostics m_diagnostics;
    LoadTable m_table;
};

StartUp& startUp();
