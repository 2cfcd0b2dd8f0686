/*
 * Fields of the alerts.
 *
 * No getter tests its pointer and none touches the last error: a null record faults.  What a
 * pointer leads to belongs to the record and is good only during the callback.
 *
 * Threads: getters only read the record that they are given.
 */
#ifndef VDREADER_ALERTS_H
#define VDREADER_ALERTS_H

#include "vdreader/readers.h"

#ifdef __cplusplus
extern "C" {
#endif

VDREADER_API uint32_t get_sAlertDesc_type(const sAlertDesc* alert);

/* 0 to 7.  Every stored value above 6 is 7. */
VDREADER_API uint32_t get_sAlertDesc_send_type(const sAlertDesc* alert);

/* The low 32 bits of a 64-bit field. */
VDREADER_API uint32_t get_sAlertDesc_flags(const sAlertDesc* alert);

VDREADER_API uint32_t get_sAlertDesc_perms(const sAlertDesc* alert);
VDREADER_API uint32_t get_sAlertDesc_perms_ex(const sAlertDesc* alert);
VDREADER_API uint32_t get_sAlertDesc_perms_ex2(const sAlertDesc* alert);

/* Text fields of 13 bytes, terminator included, which a damaged file may lack.  Never null. */
VDREADER_API const char* get_sAlertDesc_firm_id(const sAlertDesc* alert);
VDREADER_API const char* get_sAlertDesc_client_code(const sAlertDesc* alert);

/* The first class code of the alert, a field of 13 bytes like those above; null where it has none.
 * The other codes cannot be reached. */
VDREADER_API const char* get_sAlertDesc_class_code(const sAlertDesc* alert);

/* Bytes of any value, and their number.  The pointer is null for none. */
VDREADER_API const uint8_t* get_sAlertDesc_data_id_ptr(const sAlertDesc* alert);
VDREADER_API uint64_t get_sAlertDesc_data_id_size(const sAlertDesc* alert);

/*
 * The body and its size in bytes.  The file stores that size apart from the bytes: where it is 0
 * the pointer leads to an empty string, whatever bytes there are; where it is not 0 and there are
 * no bytes the pointer is null.  A damaged file may tell more than there is: nothing behind the
 * stored bytes belongs to the record.
 */
VDREADER_API const uint8_t* get_sAlertDesc_body_ptr(const sAlertDesc* alert);
VDREADER_API uint64_t get_sAlertDesc_body_size(const sAlertDesc* alert);

/* The user ids, and how many they are.  The pointer is null for none. */
VDREADER_API const uint32_t* get_sAlertDesc_user_id_ptr(const sAlertDesc* alert);
VDREADER_API int64_t get_sAlertDesc_user_id_size(const sAlertDesc* alert);

#ifdef __cplusplus
}
#endif

#endif
