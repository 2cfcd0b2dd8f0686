// The regular getters of alerts, a row each: export, result, record, field.

#pragma once

// clang-format off
#define VDREADER_ALERT_GETTERS(ROW) \
    ROW(get_sAlertDesc_type, uint32_t, sAlertDesc, type) \
    ROW(get_sAlertDesc_send_type, uint32_t, sAlertDesc, send_type) \
    ROW(get_sAlertDesc_perms, uint32_t, sAlertDesc, perms) \
    ROW(get_sAlertDesc_perms_ex, uint32_t, sAlertDesc, perms_ex) \
    ROW(get_sAlertDesc_perms_ex2, uint32_t, sAlertDesc, perms_ex2) \
    ROW(get_sAlertDesc_firm_id, const char*, sAlertDesc, firm_id) \
    ROW(get_sAlertDesc_client_code, const char*, sAlertDesc, client_code) \
    ROW(get_sAlertDesc_body_size, uint64_t, sAlertDesc, body_size)

// clang-format on
