// The fields of latest values, change records and alerts.

#include "vdcat/fields.h"
#include "vdcat/marketRows.h"

namespace vdcat {

namespace {

constexpr std::size_t kCodeSize = 13;
constexpr bool kShown = true;
constexpr bool kHidden = false;
constexpr bool kNumber = true;
constexpr bool kText = false;

template <typename Number>
Value whole(Number number) {
    return static_cast<std::int64_t>(number);
}

const Field<LastRow> kLastFields[] = {
    {"class_code", kText, kShown,
     [](const LastRow& row) -> Value { return classCodeOf(row.classDesc); }},
    {"sec_code", kText, kShown,
     [](const LastRow& row) -> Value { return secCodeOf(row.security); }},
    {"index", kNumber, kHidden, [](const LastRow& row) -> Value { return row.index; }},
    {"param", kText, kShown,
     [](const LastRow& row) -> Value { return std::string_view(row.param->name); }},
    {"value", kNumber, kShown, [](const LastRow& row) -> Value { return row.value; }},
};

const Field<LastSecurityRow> kLastSecurityFields[] = {
    {"class_code", kText, kShown,
     [](const LastSecurityRow& row) -> Value { return classCodeOf(row.classDesc); }},
    {"sec_code", kText, kShown,
     [](const LastSecurityRow& row) -> Value { return secCodeOf(row.security); }},
    {"values", kText, kShown,
     [](const LastSecurityRow& row) -> Value {
         return Composed{row.json, {}};
     }},
};

#define CHANGE_WHOLE(field, shown)                                                                 \
  {                                                                                                \
#    field, kNumber, shown, [](const JournalRow& row) -> Value { return whole(row.record.field); } \
  }
#define CHANGE_CODE(field)                                                                    \
  {                                                                                           \
#    field, kText, kShown,                                                                    \
        [](const JournalRow& row) -> Value { return fieldText(row.record.field, kCodeSize); } \
  }

const Field<JournalRow> kJournalFields[] = {
    CHANGE_WHOLE(dataField1, kShown),
    CHANGE_CODE(class_code),
    CHANGE_CODE(sec_code),
    CHANGE_WHOLE(dataField2, kShown),
    CHANGE_WHOLE(dataField3, kShown),
    {"values", kText, kShown,
     [](const JournalRow& row) -> Value {
         return row.named ? Value{Composed{row.valuesJson, row.valuesPlain}} : Value{};
     }},
    CHANGE_WHOLE(sec_id, kHidden),
    {"mask", kText, kHidden,
     [](const JournalRow& row) -> Value { return std::string_view(row.mask); }},
    {"longs", kText, kHidden,
     [](const JournalRow& row) -> Value {
         return Composed{row.longsJson, row.longsPlain};
     }},
    {"doubles", kText, kHidden,
     [](const JournalRow& row) -> Value {
         return Composed{row.doublesJson, row.doublesPlain};
     }},
    CHANGE_WHOLE(maskSize, kHidden),
    CHANGE_WHOLE(longCount, kHidden),
    CHANGE_WHOLE(doubleCount, kHidden),
};

#define ALERT_WHOLE(field, shown)                                                             \
  {                                                                                           \
#    field, kNumber, shown,                                                                   \
        [](const AlertRow& row) -> Value { return whole(get_sAlertDesc_##field(row.alert)); } \
  }
#define ALERT_TEXT(field, shown)                                                          \
  {                                                                                       \
#    field, kText, shown,                                                                 \
        [](const AlertRow& row)                                                           \
             -> Value { return fieldText(get_sAlertDesc_##field(row.alert), kCodeSize); } \
  }

const Field<AlertRow> kAlertFields[] = {
    {"number", kNumber, kShown, [](const AlertRow& row) -> Value { return row.number; }},
    ALERT_WHOLE(type, kShown),
    ALERT_WHOLE(send_type, kShown),
    ALERT_TEXT(firm_id, kShown),
    ALERT_TEXT(client_code, kShown),
    ALERT_TEXT(class_code, kShown),
    {"user_ids", kText, kShown,
     [](const AlertRow& row) -> Value {
         return Composed{row.userIdsJson, row.userIdsPlain};
     }},
    {"body", kText, kShown,
     [](const AlertRow& row) -> Value { return row.bodyIsText ? Value{row.body} : Value{}; }},
    {"body_hex", kText, kHidden,
     [](const AlertRow& row) -> Value {
         return row.bodyIsThere ? Value{std::string_view(row.bodyHex)} : Value{};
     }},
    ALERT_WHOLE(body_size, kHidden),
    {"data_id", kText, kHidden,
     [](const AlertRow& row) -> Value { return std::string_view(row.dataId); }},
    ALERT_WHOLE(data_id_size, kHidden),
    ALERT_WHOLE(flags, kHidden),
    ALERT_WHOLE(perms, kHidden),
    ALERT_WHOLE(perms_ex, kHidden),
    ALERT_WHOLE(perms_ex2, kHidden),
    ALERT_WHOLE(user_id_size, kHidden),
};

} // namespace

template <>
std::span<const Field<LastRow>> fieldsOf() {
    return kLastFields;
}
template <>
std::span<const Field<LastSecurityRow>> fieldsOf() {
    return kLastSecurityFields;
}
template <>
std::span<const Field<JournalRow>> fieldsOf() {
    return kJournalFields;
}
template <>
std::span<const Field<AlertRow>> fieldsOf() {
    return kAlertFields;
}

} // namespace vdcat
