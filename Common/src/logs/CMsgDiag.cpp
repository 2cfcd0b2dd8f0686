// Names of levels and priorities, and the templates' set-up.

#include "logs/CMsgDiag.h"

#include <iostream>

namespace {

template <class Value>
MsgNames<Value> named(std::initializer_list<std::pair<Value, const char*>> rows) {
    MsgNames<Value> made;
    for (const auto& [value, name] : rows) {
        made.names.emplace(value, name);
        made.values.emplace(name, value);
    }
    return made;
}

const MsgNames<MsgLevel> levels = named<MsgLevel>({{MsgLevel::Unknown, "Unknown"},
                                                   {MsgLevel::Error, "Error"},
                                                   {MsgLevel::Info, "Info"},
                                                   {MsgLevel::Warning, "Warning"},
                                                   {MsgLevel::Debug, "Debug"}});
const MsgNames<MsgPriority> priorities = named<MsgPriority>({{MsgPriority::Undefined, "Undefined"},
                                                             {MsgPriority::High, "High"},
                                                             {MsgPriority::Low, "Low"},
                                                             {MsgPriority::Normal, "Normal"}});

} // namespace

const MsgNames<MsgLevel>& msgLevelNames() {
    return levels;
}
const MsgNames<MsgPriority>& msgPriorityNames() {
    return priorities;
}

CMsgDiagElem::CMsgDiagElem(MsgLevel ofLevel, MsgPriority ofPriority,
                           const std::vector<MsgField>& ofFields)
    : configured(1),
      level(ofLevel),
      priority(ofPriority),
      name("General"),
      fieldCount(ofFields.size()),
      fields(ofFields) {}

CMsgDiagSet::CMsgDiagSet(const std::vector<MsgField>& fields)
    : error(MsgLevel::Error, MsgPriority::High, fields),
      info(MsgLevel::Info, MsgPriority::Normal, fields),
      warning(MsgLevel::Warning, MsgPriority::High, fields) {
    // Deliberate: without a priority, which no mask lets pass.  What components post at this level
    // is for their own tools and fills no file in the field.
    debug.level = MsgLevel::Debug;
}

const CMsgDiagElem* CMsgDiagSet::find(std::uint8_t level) const {
    switch (static_cast<MsgLevel>(level)) {
        case MsgLevel::Error:
            return &error;
        case MsgLevel::Info:
            return &info;
        case MsgLevel::Warning:
            return &warning;
        case MsgLevel::Debug:
            return &debug;
        default:
            return nullptr;
    }
}

std::vector<MsgField> fieldsOfScheme(std::uint32_t schemeType) {
    if (schemeType == 0)
        return {{"<", 1}, {"", 2}, {" ", 3}};
    if (schemeType == 1)
        return {{"", 1}};
    std::cerr << "Unknown log scheme type." << '\n' << std::flush;
    return {};
}
