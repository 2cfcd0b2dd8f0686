// Getters of alerts.  None tests its record.
//
// The parts of a record are used again for the next one, so an empty one may hold memory; a caller
// gets null for it all the same.

#include "Alerts/getterRows.h"
#include "Alerts/sAlertDesc.h"
#include "vdreader/alerts.h"

namespace {

template <class Element>
const Element* startOf(const AlertPart<Element>& part) {
    return part.empty() ? nullptr : part.data();
}

} // namespace

#define VDREADER_DEFINE_GETTER(getter, Result, Record, field) \
  Result getter(const Record* record) {                       \
    return record->field;                                     \
  }

extern "C" {
VDREADER_ALERT_GETTERS(VDREADER_DEFINE_GETTER)

// Deliberate: the low half alone.  Callers keep flags in 32 bits; the upper half is the servers'.
uint32_t get_sAlertDesc_flags(const sAlertDesc* alert) {
    return static_cast<uint32_t>(alert->flags);
}

const char* get_sAlertDesc_class_code(const sAlertDesc* alert) {
    return alert->class_codes.empty() ? nullptr : alert->class_codes[0].text;
}

const uint8_t* get_sAlertDesc_data_id_ptr(const sAlertDesc* alert) {
    return startOf(alert->data_id);
}

uint64_t get_sAlertDesc_data_id_size(const sAlertDesc* alert) {
    return alert->data_id.size();
}

const uint8_t* get_sAlertDesc_body_ptr(const sAlertDesc* alert) {
    // Deliberate: the size that is stored apart decides, whatever bytes the body has.  Servers
    // blank an alert by that size.
    static const uint8_t kEmpty[1] = {};
    return alert->body_size != 0 ? startOf(alert->body) : kEmpty;
}

const uint32_t* get_sAlertDesc_user_id_ptr(const sAlertDesc* alert) {
    return startOf(alert->user_ids);
}

int64_t get_sAlertDesc_user_id_size(const sAlertDesc* alert) {
    return static_cast<int64_t>(alert->user_ids.size());
}

} // extern "C"
