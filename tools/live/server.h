// The play of a server on the files of a folder: values of securities change, each change goes to
// the journal, and now and then an alert is raised.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "live/alertWriter.h"
#include "live/dataWriter.h"
#include "sample/activity.h"

namespace live {

struct ServerPlaces {
    std::string classFile;
    std::string dataFile;
    std::string alertFile;
};

class Server {
  public:
    // Opens the files, which must be there, and goes on with what they hold.  `accounts` is the
    // number of accounts that alerts are of.  The same seed on the same files gives the same
    // changes.  Raises Error.
    Server(const ServerPlaces& places, std::uint64_t seed, std::size_t accounts);

    // One change of one security: its slot under the lock, then a record.  Every sixteenth step
    // raises an alert as well.  Without a security that has a slot only alerts are raised.  Raises
    // Error and std::length_error like the writers.
    void step();

    std::uint64_t changes() const { return m_changes; }
    std::uint64_t alerts() const { return m_alerts; }
    std::uint64_t pages() const { return m_data.pagesOpened(); }

  private:
    struct Place {
        const sample::ClassRecord* owner;
        std::uint32_t secId;
    };

    void change();

    std::vector<sample::ClassRecord> m_classes;
    std::vector<Place> m_places;
    DataWriter m_data;
    AlertWriter m_alertFile;
    sample::Random m_random;
    std::size_t m_accounts;
    std::uint64_t m_steps = 0;
    std::uint64_t m_changes = 0;
    std::uint64_t m_alerts = 0;
};

} // namespace live
