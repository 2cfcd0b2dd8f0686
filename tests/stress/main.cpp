// One process of the stress tests: vdreader_stress ROLE PATH SECONDS [OPTION].

#include <charconv>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>

#include "roles.h"

namespace {

// A whole number, 0 for what is none.
unsigned numberOf(const std::string& text) {
    unsigned number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

} // namespace

bool Writing::goesOn() {
    m_stopped = m_stopped || std::filesystem::exists(m_stop);
    return !m_stopped && m_span.lasts();
}

int main(int count, char** arguments) {
    if (count < 4) {
        std::fprintf(stderr, "vdreader_stress ROLE PATH SECONDS [OPTION]\n");
        return 2;
    }
    const std::string role = arguments[1];
    const std::string path = arguments[2];
    const double seconds = numberOf(arguments[3]);
    const std::string option = count > 4 ? arguments[4] : "";
    try {
        if (role == "write-slots")
            return writeSlots(path, seconds, option != "unlocked");
        if (role == "read-slots")
            return readSlots(path, seconds, option == "torn");
        if (role == "hold-slot")
            return holdSlot(path, numberOf(option));
        if (role == "append-records")
            return appendRecords(path, seconds);
        if (role == "walk-journal")
            return walkJournal(path, seconds, option == "still");
        if (role == "append-alerts")
            return appendAlerts(path, seconds);
        if (role == "walk-alerts")
            return walkAlerts(path, seconds);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s: %s\n", role.c_str(), failure.what());
        return 1;
    }
    std::fprintf(stderr, "no such role: %s\n", role.c_str());
    return 2;
}
