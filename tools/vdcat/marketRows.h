// Rows of the kinds that a server changes all the time: latest values, change records, alerts.

#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "vdcat/value.h"
#include "vdreader/vdreader.h"

namespace vdcat {

// What the values of a parameter are called and how they are stored.
struct ParamFacts {
    std::string name; // db_name, or "#" and its place where that is empty
    bool isDouble;
};

// The parameters of every class that is loaded.
class ParamCatalog {
  public:
    // Reads them from the library, whose classes must be open.  Restarts the classes' own walks.
    ParamCatalog();

    // The parameters of the class with that code, in their order; none for an unknown one.
    const std::vector<ParamFacts>& of(std::string_view classCode) const;

  private:
    std::unordered_map<std::string, std::vector<ParamFacts>> m_classes;
};

// Whether a bit of a mask of 16 bytes is set; false from bit 128 on.
bool hasBit(const std::uint8_t* mask, std::size_t param);

// ---- latest values ----

// One value of a security: what a table and CSV show.
struct LastRow {
    const sClassParUnitedDesc* classDesc;
    const sSecurityDesc* security;
    const ParamFacts* param;
    std::int64_t index; // place of the parameter in the class
    Value value;        // nothing for one that has gone
};

// All values of a security: what JSON shows.
struct LastSecurityRow {
    LastSecurityRow(const sClassParUnitedDesc* owner, const sSecurityDesc* which)
        : classDesc(owner), security(which) {}

    const sClassParUnitedDesc* classDesc;
    const sSecurityDesc* security;
    std::string json = "null"; // of its values
};

// The values of one security as the library copied them.
class LastValues {
  public:
    // Asks the library.  Raises tool::Failure where it fails for another reason than that the slot
    // has no values of a class that is loaded, or that the security has no slot.
    explicit LastValues(const sSecurityDesc* security);

    // Whether parameter `index` of a class with `count` parameters has a value.
    bool has(std::size_t index, std::size_t count) const;
    Value at(std::size_t index, const ParamFacts& param) const;
    std::string json(const std::vector<ParamFacts>& params) const;

    // Whether the stored value of the parameter is the same in both.
    bool isSame(std::size_t index, const ParamFacts& param, const LastValues& other) const;

    bool areThere() const { return m_areThere; }
    bool operator==(const LastValues& other) const;

  private:
    bool m_areThere = false;
    sLastDynParams m_values = {};
};

// ---- change records ----

struct JournalRow {
    JournalRow(const sDynParams& change, const std::vector<ParamFacts>& params);
    // The texts point into one another.
    JournalRow(const JournalRow&) = delete;
    JournalRow& operator=(const JournalRow&) = delete;

    const sDynParams& record;
    bool named = false; // whether the mask fits the counts
    std::string valuesJson;
    std::string valuesPlain;
    std::string mask; // hexadecimal
    std::string longsJson;
    std::string longsPlain;
    std::string doublesJson;
    std::string doublesPlain;
};

// ---- alerts ----

struct AlertRow {
    // `maxBody` bounds the size of a body, which a damaged file may tell larger than it is.
    AlertRow(const sAlertDesc* which, std::int64_t place, std::uint64_t maxBody);
    AlertRow(const AlertRow&) = delete;
    AlertRow& operator=(const AlertRow&) = delete;

    const sAlertDesc* alert;
    std::int64_t number; // place in the file, from 0
    std::string dataId;  // hexadecimal
    std::string_view body;
    bool bodyIsText = false;
    bool bodyIsThere = false;
    std::string bodyHex;
    std::string userIdsJson;
    std::string userIdsPlain;
};

} // namespace vdcat
