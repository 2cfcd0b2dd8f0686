// One step after another.

#include "live/server.h"

#include "live/classReader.h"

namespace live {

namespace {

constexpr std::uint64_t kStepsPerAlert = 16;

} // namespace

Server::Server(const ServerPlaces& places, std::uint64_t seed, std::size_t accounts)
    : m_classes(readClasses(places.classFile)),
      m_data(places.dataFile),
      m_alertFile(places.alertFile),
      m_random(seed),
      m_accounts(accounts) {
    for (const sample::ClassRecord& owner : m_classes)
        for (const sample::Security& security : owner.securities)
            if (security.sec_id < m_data.slotCount())
                m_places.push_back({&owner, security.sec_id});
}

void Server::step() {
    if (!m_places.empty())
        change();
    if (m_steps++ % kStepsPerAlert == 0) {
        m_alertFile.append(sample::makeAlert(static_cast<std::size_t>(m_alertFile.count()),
                                             m_accounts, m_classes, m_random));
        ++m_alerts;
    }
}

void Server::change() {
    const Place& place = m_places[m_random.below(m_places.size())];
    sample::Slot slot = m_data.readSlot(place.secId);
    const sample::Record record =
        sample::makeChange(*place.owner, place.secId, m_changes, slot, m_random);
    m_data.writeSlot(place.secId, slot);
    m_data.appendRecord(record);
    ++m_changes;
}

} // namespace live
