/*
 * Current data: what the walk of change records hands out, and the latest values of one security.
 *
 * The two structures are read by the caller directly and have no getters.  They are packed: no
 * field is aligned, so copy a number out (memcpy, or plain access through the structure, which the
 * compiler knows to be packed) and do not take its address as that of a double.
 */
#ifndef VDREADER_DYNPARAMS_H
#define VDREADER_DYNPARAMS_H

#include <stddef.h>
#include <stdint.h>

#include "vdreader/readers.h"

#ifdef __cplusplus
extern "C" {
#endif

#pragma pack(push, 1)

/*
 * One change record, joined to the codes of its class and security.  Values stand without gaps, in
 * the order of the mask's bits: the integers in `longs`, the doubles in `doubles`; which parameter
 * is which tells the class (bit 0 of get_sParDesc_flags).  What is not used is zero.
 *
 * The counts are those of the record.  A damaged record may count more than 128 values: then 128
 * stand here.
 */
struct sDynParams {
    int32_t dataField1;  /* running number of the record, not negative */
    int32_t dataField2;  /* the server's own */
    char class_code[13]; /* at most 12 characters and a terminator */
    char sec_code[13];   /* the same */
    int32_t dataField3;  /* the server's own */
    uint8_t longCount;   /* integers in `longs` */
    uint8_t doubleCount; /* doubles in `doubles` */
    uint8_t maskSize;    /* bytes in `mask` */
    uint32_t sec_id;
    uint8_t mask[16]; /* bit i (byte i / 8, value 1 << (i % 8)): parameter i has changed */
    int32_t longs[128];
    double doubles[128];
};

/* The latest values of one security.  Entry i of both arrays belongs to parameter i of the class.
 */
struct sLastDynParams {
    uint8_t mask[16]; /* bit i (byte i / 8, value 1 << (i % 8)): parameter i has a value */
    int32_t longs[128];
    double doubles[128];
};

#pragma pack(pop)

/*
 * Copies the latest values of a security into the caller's `out`, as they stand in the file at this
 * moment; a server's write shows at once.  The mask is copied whole.  For each parameter of the
 * mask that the class of the slot has (their number counts modulo 256), the value goes to `doubles`
 * if bit 0 of the parameter's flags is set and to `longs` otherwise; all other entries of `out`
 * keep what they held. Parameters behind the last byte of the mask that is not zero are left out,
 * and those behind the 128th.
 *
 * No lock is taken, so a value may be torn where the server writes at that moment.
 * TCurrentData::GetDoubleParam and GetLongParam of curdata.hpp read under the slot's lock.
 *
 * 1, or 0 with one of: "classes storage is not initialized", "dynamic parameters storage is not
 * initialized", "invalid security in dynamic parameters request" (a sec_id that the file has no
 * slot for), "unknown error in dynamic parameters request" (a slot that is not mapped), "could not
 * find parameters for class_id=%d" (the class of the slot is not loaded).
 *
 * A null `out` is a broken contract: a line on standard error, and the process ends with the
 * structured exception 0xC0000417 on Windows, by abort on Linux.  A null security faults.  No
 * allocation and no system call.
 */
VDREADER_API int32_t get_sSecurityDesc_last_dynamic_params(const sSecurityDesc* security,
                                                           sLastDynParams* out);

#ifdef __cplusplus
}

static_assert(sizeof(sDynParams) == 1597);
static_assert(offsetof(sDynParams, dataField1) == 0);
static_assert(offsetof(sDynParams, dataField2) == 4);
static_assert(offsetof(sDynParams, class_code) == 8);
static_assert(offsetof(sDynParams, sec_code) == 21);
static_assert(offsetof(sDynParams, dataField3) == 34);
static_assert(offsetof(sDynParams, longCount) == 38);
static_assert(offsetof(sDynParams, doubleCount) == 39);
static_assert(offsetof(sDynParams, maskSize) == 40);
static_assert(offsetof(sDynParams, sec_id) == 41);
static_assert(offsetof(sDynParams, mask) == 45);
static_assert(offsetof(sDynParams, longs) == 61);
static_assert(offsetof(sDynParams, doubles) == 573);

static_assert(sizeof(sLastDynParams) == 1552);
static_assert(offsetof(sLastDynParams, mask) == 0);
static_assert(offsetof(sLastDynParams, longs) == 16);
static_assert(offsetof(sLastDynParams, doubles) == 528);
#endif

#endif
