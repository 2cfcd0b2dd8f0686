// The fields of each kind of record, under the names of the library's getters, and what a record
// needs beside itself to give them.

#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "vdcat/options.h"
#include "vdcat/value.h"
#include "vdreader/vdreader.h"

namespace vdcat {

// What a kind's fields are read from.  The pointers are good for the row only.
struct InfoRow {
    const char* kind;
    bool ready;
    std::int64_t count;
    std::string error;
};

struct ClassRow {
    sClassParUnitedDesc* classDesc;
    const std::unordered_map<const sClassParUnitedDesc*, std::int64_t>* securityCounts;
};

struct SecurityRow {
    const sClassParUnitedDesc* classDesc;
    const sSecurityDesc* security;
    std::uint16_t lang;
};

struct ParamRow {
    const sClassParUnitedDesc* classDesc;
    const sParDesc* param;
    std::int64_t index; // place in the class, from 0
    std::uint16_t lang;
};

struct LimitRow {
    const sFutLimit* limit;
};

struct PositionRow {
    const sFutPosition* position;
};

template <typename Row>
struct Field {
    const char* name;
    bool numeric;
    bool inTable; // one of the columns that a table shows when no fields are asked for
    Value (*get)(const Row& row);
};

// All fields of a kind, in the order in which they are shown.
template <typename Row>
std::span<const Field<Row>> fieldsOf();

// Raises tool::Failure kUsage that names the field and lists those that there are.
[[noreturn]] void refuseField(const std::string& name, Kind kind,
                              const std::vector<std::string>& known);

// The fields with the given names, in their order; without names those of a table, or all.
template <typename Row>
std::vector<Field<Row>> selectFields(const Request& request, Format format) {
    std::vector<Field<Row>> selected;
    if (request.fields.empty()) {
        for (const Field<Row>& field : fieldsOf<Row>())
            if (field.inTable || format != Format::Table)
                selected.push_back(field);
        return selected;
    }
    for (const std::string& name : request.fields) {
        const std::size_t before = selected.size();
        for (const Field<Row>& field : fieldsOf<Row>())
            if (name == field.name)
                selected.push_back(field);
        if (selected.size() == before) {
            std::vector<std::string> known;
            for (const Field<Row>& field : fieldsOf<Row>())
                known.emplace_back(field.name);
            refuseField(name, request.kind, known);
        }
    }
    return selected;
}

// Text fields that filters compare.
std::string_view classCodeOf(const sClassParUnitedDesc* classDesc);
std::string_view secCodeOf(const sSecurityDesc* security);
std::string_view secCodeOf(const sFutPosition* position);

// Number of parameters of a class; restarts the class's own walk.
std::int64_t paramCount(sClassParUnitedDesc* classDesc);

} // namespace vdcat
