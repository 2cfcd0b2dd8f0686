// Building of the rows from what the library hands out.

#include "vdcat/marketRows.h"

#include <algorithm>
#include <cstring>

#include "vdcat/convert.h"
#include "vdcat/fields.h"
#include "vdcat/source.h"
#include "vdcat/walks.h"

namespace vdcat {

namespace {

constexpr std::size_t kMaskBits = 128;
constexpr std::size_t kNameSize = 17;

template <typename Number>
Number numberAt(const void* values, std::size_t index) {
    Number value;
    std::memcpy(&value, static_cast<const char*>(values) + index * sizeof value, sizeof value);
    return value;
}

Value valueOf(const void* longs, std::size_t longIndex, const void* doubles,
              std::size_t doubleIndex, bool isDouble) {
    if (isDouble)
        return numberAt<double>(doubles, doubleIndex);
    return std::int64_t{numberAt<std::int32_t>(longs, longIndex)};
}

// Adds `name` and value to an object or, with an empty name, the value to an array.
void addJson(std::string& out, const std::string& name, const Value& value) {
    if (out.size() > 1)
        out += ',';
    if (!name.empty()) {
        appendJsonString(out, name);
        out += ':';
    }
    appendJsonValue(out, value);
}

void addPlain(std::string& out, const std::string& name, const Value& value) {
    if (!out.empty())
        out += ' ';
    if (!name.empty()) {
        appendUtf8(out, name);
        out += '=';
    }
    appendPlainValue(out, value);
}

template <typename Number>
void listNumbers(const void* values, std::size_t count, std::string& json, std::string& plain) {
    json = "[";
    for (std::size_t i = 0; i < count; ++i) {
        Value value;
        if constexpr (std::is_floating_point_v<Number>)
            value = numberAt<Number>(values, i);
        else
            value = static_cast<std::int64_t>(numberAt<Number>(values, i));
        addJson(json, "", value);
        addPlain(plain, "", value);
    }
    json += ']';
}

// Line ends and tabs belong to a text, other control characters do not.
bool isText(std::string_view bytes) {
    return std::none_of(bytes.begin(), bytes.end(), [](char letter) {
        const auto byte = static_cast<unsigned char>(letter);
        return (byte < 0x20 && byte != '\n' && byte != '\r' && byte != '\t') || byte == 0x7F;
    });
}

} // namespace

ParamCatalog::ParamCatalog() {
    walkClasses([&](sClassParUnitedDesc* classDesc) {
        std::vector<ParamFacts>& params = m_classes[std::string(classCodeOf(classDesc))];
        for (const sParDesc* param = get_sClassParUnitedDesc_par_desc(classDesc); param;
             param = get_sParDesc_next(classDesc)) {
            const Value name = fieldText(get_sParDesc_db_name(param), kNameSize);
            std::string text(std::get<std::string_view>(name));
            if (text.empty())
                text = "#" + std::to_string(params.size());
            params.push_back({std::move(text), (get_sParDesc_flags(param) & 1) != 0});
        }
        return true;
    });
}

const std::vector<ParamFacts>& ParamCatalog::of(std::string_view classCode) const {
    static const std::vector<ParamFacts> kNone;
    const auto found = m_classes.find(std::string(classCode));
    return found == m_classes.end() ? kNone : found->second;
}

bool hasBit(const std::uint8_t* mask, std::size_t param) {
    return param < kMaskBits && mask[param / 8] & 1 << param % 8;
}

// ---- latest values ----

LastValues::LastValues(const sSecurityDesc* security) {
    m_areThere = get_sSecurityDesc_last_dynamic_params(security, &m_values) == 1;
    if (m_areThere)
        return;
    const std::string_view reason = get_vdreader_error();
    if (!reason.starts_with("could not find parameters for class_id=") &&
        reason != "invalid security in dynamic parameters request")
        throw lastFailure();
    m_values = {};
}

// The library counts the parameters of a class in eight bits.
bool LastValues::has(std::size_t index, std::size_t count) const {
    return m_areThere && index < count % 256 && hasBit(m_values.mask, index);
}

Value LastValues::at(std::size_t index, const ParamFacts& param) const {
    return valueOf(reinterpret_cast<const char*>(&m_values) + offsetof(sLastDynParams, longs),
                   index,
                   reinterpret_cast<const char*>(&m_values) + offsetof(sLastDynParams, doubles),
                   index, param.isDouble);
}

// By their bytes: a value that is no number is the same as itself.
bool LastValues::isSame(std::size_t index, const ParamFacts& param, const LastValues& other) const {
    const std::size_t size = param.isDouble ? sizeof(double) : sizeof(std::int32_t);
    const std::size_t offset =
        (param.isDouble ? offsetof(sLastDynParams, doubles) : offsetof(sLastDynParams, longs)) +
        index * size;
    return std::memcmp(reinterpret_cast<const char*>(&m_values) + offset,
                       reinterpret_cast<const char*>(&other.m_values) + offset, size) == 0;
}

std::string LastValues::json(const std::vector<ParamFacts>& params) const {
    if (!m_areThere)
        return "null";
    std::string out = "{";
    for (std::size_t i = 0; i < params.size(); ++i)
        if (has(i, params.size()))
            addJson(out, params[i].name, at(i, params[i]));
    return out + "}";
}

bool LastValues::operator==(const LastValues& other) const {
    const auto* bytes = reinterpret_cast<const char*>(&m_values);
    return m_areThere == other.m_areThere &&
           std::equal(bytes, bytes + sizeof m_values,
                      reinterpret_cast<const char*>(&other.m_values));
}

// ---- change records ----

JournalRow::JournalRow(const sDynParams& change, const std::vector<ParamFacts>& params)
    : record(change) {
    const char* bytes = reinterpret_cast<const char*>(&change);
    const char* longs = bytes + offsetof(sDynParams, longs);
    const char* doubles = bytes + offsetof(sDynParams, doubles);
    const std::size_t longCount = std::min<std::size_t>(change.longCount, kMaskBits);
    const std::size_t doubleCount = std::min<std::size_t>(change.doubleCount, kMaskBits);
    appendHex(mask, change.mask, std::min<std::size_t>(change.maskSize, sizeof change.mask));
    listNumbers<std::int32_t>(longs, longCount, longsJson, longsPlain);
    listNumbers<double>(doubles, doubleCount, doublesJson, doublesPlain);

    std::size_t longAt = 0;
    std::size_t doubleAt = 0;
    named = true;
    valuesJson = "{";
    for (std::size_t i = 0; i < kMaskBits && named; ++i) {
        if (!hasBit(change.mask, i))
            continue;
        named =
            i < params.size() && (params[i].isDouble ? doubleAt < doubleCount : longAt < longCount);
        if (!named)
            break;
        const Value value = valueOf(longs, longAt, doubles, doubleAt, params[i].isDouble);
        ++(params[i].isDouble ? doubleAt : longAt);
        addJson(valuesJson, params[i].name, value);
        addPlain(valuesPlain, params[i].name, value);
    }
    valuesJson += '}';
    named = named && longAt == change.longCount && doubleAt == change.doubleCount;
}

// ---- alerts ----

AlertRow::AlertRow(const sAlertDesc* which, std::int64_t place, std::uint64_t maxBody)
    : alert(which), number(place) {
    if (const std::uint8_t* id = get_sAlertDesc_data_id_ptr(which))
        appendHex(dataId, id, get_sAlertDesc_data_id_size(which));
    const std::uint64_t size = get_sAlertDesc_body_size(which);
    const std::uint8_t* bytes = get_sAlertDesc_body_ptr(which);
    bodyIsThere = bytes && size <= maxBody;
    if (bodyIsThere) {
        body = {reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(size)};
        bodyIsText = isText(body);
        appendHex(bodyHex, bytes, body.size());
    }
    const std::uint32_t* ids = get_sAlertDesc_user_id_ptr(which);
    const std::int64_t count = ids ? get_sAlertDesc_user_id_size(which) : 0;
    listNumbers<std::uint32_t>(ids, static_cast<std::size_t>(count), userIdsJson, userIdsPlain);
}

} // namespace vdcat
