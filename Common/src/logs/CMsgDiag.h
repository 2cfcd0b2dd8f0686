// Templates of the message logger: for each level of messages, how the parameters of a record
// become text.

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

enum class MsgLevel : std::uint32_t { Unknown, Error, Info, Warning, Debug };
enum class MsgPriority : std::uint32_t { Undefined, High, Low, Normal };

// Names of an enumeration's values, both ways.
template <class Value>
struct MsgNames {
    std::unordered_map<Value, std::string> names;
    std::unordered_map<std::string, Value> values;
};

// Made while the library loads, constant from then on.
const MsgNames<MsgLevel>& msgLevelNames();
const MsgNames<MsgPriority>& msgPriorityNames();

// A step of a template: a text, and the parameter to print behind it.
struct MsgField {
    std::string text;
    std::uint16_t paramIndex; // counted from 1; 0 for none
};

// The template of one level.
class CMsgDiagElem {
  public:
    CMsgDiagElem() = default;
    CMsgDiagElem(MsgLevel ofLevel, MsgPriority ofPriority, const std::vector<MsgField>& ofFields);
    CMsgDiagElem(const CMsgDiagElem&) = default;
    CMsgDiagElem& operator=(const CMsgDiagElem&) = default;
    virtual ~CMsgDiagElem() = default;

    std::uint32_t configured = 0; // 1 once it has been set up
    MsgLevel level = MsgLevel::Unknown;
    MsgPriority priority = MsgPriority::Undefined;
    std::string name; // the facility
    std::size_t fieldCount = 0;
    std::vector<MsgField> fields;
    // Set by other components of the family alone.
    std::string extraName;
    std::int32_t extraNumber = 0;
};

class CErrMsgDiagElem : public CMsgDiagElem {
    using CMsgDiagElem::CMsgDiagElem;
};
class CInfoMsgDiagElem : public CMsgDiagElem {
    using CMsgDiagElem::CMsgDiagElem;
};
class CWarningMsgDiagElem : public CMsgDiagElem {
    using CMsgDiagElem::CMsgDiagElem;
};
class CDebugMsgDiagElem : public CMsgDiagElem {
    using CMsgDiagElem::CMsgDiagElem;
};

// One template of each level, all of them with the fields of one scheme.
struct CMsgDiagSet {
    explicit CMsgDiagSet(const std::vector<MsgField>& fields);

    // Null for a level that has none.
    const CMsgDiagElem* find(std::uint8_t level) const;

    CErrMsgDiagElem error;
    CInfoMsgDiagElem info;
    CWarningMsgDiagElem warning;
    // Not set up: the logger prints nothing of this level.
    CDebugMsgDiagElem debug;
};

// Scheme 0: "<" and parameters 1, 2 and, behind a blank, 3.  Scheme 1: parameter 1 as it stands.
// Any other: no field, after "Unknown log scheme type." and a line end on standard error.
std::vector<MsgField> fieldsOfScheme(std::uint32_t schemeType);
