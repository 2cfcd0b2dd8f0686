// What the writer of the benchmark data and its readers agree on: names and sizes.

#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace bench {

inline constexpr const char* kClassFile = "class.vd";
inline constexpr const char* kOneClassFile = "one-class.vd"; // one class, no securities
inline constexpr const char* kLimitsFile = "flimit.vd";
inline constexpr const char* kPositionsFile = "fclipos.vd";
inline constexpr const char* kIniFile = "settings.ini";
inline constexpr const char* kReaderIni = "vdreader.ini"; // names the two flat files
inline constexpr const char* kDatabase = "classes.mdb";

// The mapped files.  Two hold a slot for each security of a class file with 128 parameters in each
// class, whose securities have their numbers at random: 40 of the values are set, or all of them.
inline constexpr const char* kWideClassFile = "class-128.vd";
inline constexpr const char* kFewValuesFile = "data-40.vd";
inline constexpr const char* kAllValuesFile = "data-128.vd";
inline constexpr const char* kJournalFile = "data-journal.vd"; // class.vd's securities
inline constexpr const char* kAlertsFile = "alert.vd";

// What they hold, as peers: slots from kSlotStart on by number, change records, bodies of alerts.
inline constexpr const char* kFewValuesDatabase = "data-40.mdb";
inline constexpr const char* kAllValuesDatabase = "data-128.mdb";
inline constexpr const char* kJournalDatabase = "data-journal.mdb";
inline constexpr const char* kAlertsDatabase = "alert.mdb";
inline constexpr const char* kAlertsTables = "alert.sqlite";

inline constexpr int kClasses = 20;
inline constexpr int kSecurities = 50'000;
inline constexpr int kFlatRecords = 1'000'000;
inline constexpr int kChanges = 1'000'000;
inline constexpr int kChangeSize = 80;
inline constexpr int kAlerts = 100'000;

// A slot without its lock word and the 4 bytes behind it.
inline constexpr std::size_t kSlotStart = 8;
inline constexpr std::size_t kSlotSize = 1072;

// The ini file: sections and keys by number, as they stand in the file.
inline constexpr int kIniSections = 1000;
inline constexpr int kIniKeys = 10;

inline std::string iniSection(int number) {
    return "Server." + std::to_string(number);
}

inline std::string iniKey(int number) {
    return "DataFolder" + std::to_string(number);
}

// Keys of the database, in the order of the class file: a class, then its securities, then its
// parameters.  Big-endian, so that the order of the bytes is the order of the numbers.
enum class ValueKind : std::uint8_t { Class, Security, Param };

struct DatabaseKey {
    DatabaseKey(std::uint8_t classNumber, ValueKind kind, std::uint32_t number)
        : bytes{classNumber, static_cast<std::uint8_t>(kind),
                static_cast<std::uint8_t>(number >> 16), static_cast<std::uint8_t>(number >> 8),
                static_cast<std::uint8_t>(number)} {}

    std::uint8_t bytes[5];
};

} // namespace bench
