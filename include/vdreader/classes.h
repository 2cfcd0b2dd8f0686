/*
 * Fields of a class and of its parameters.
 *
 * A null pointer yields 0 or a null pointer and the last error "Invalid argument: " with the
 * getter's name; get_sParDesc_db_name alone names get_sParDesc_flags there.  Text is single-byte
 * and lives as long as its class; it must not be changed or freed.  The number behind a text getter
 * is the size of the field with its terminator; a damaged file may lack the terminator, so a
 * careful caller reads no further than that.
 *
 * Threads: getters only read, except for the last error that a null pointer leaves and for the
 * position of the parameter walk.
 */
#ifndef VDREADER_CLASSES_H
#define VDREADER_CLASSES_H

#include "vdreader/readers.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- classes ---- */

VDREADER_API const char* get_sClassParUnitedDesc_class_code(
    const sClassParUnitedDesc* classDesc);                                                 /* 13 */
VDREADER_API const char* get_sClassParUnitedDesc_fh(const sClassParUnitedDesc* classDesc); /* 257 */
VDREADER_API const char* get_sClassParUnitedDesc_fl(const sClassParUnitedDesc* classDesc); /* 257 */
VDREADER_API const char* get_sClassParUnitedDesc_ch(const sClassParUnitedDesc* classDesc); /* 257 */
VDREADER_API const char* get_sClassParUnitedDesc_cl(const sClassParUnitedDesc* classDesc); /* 257 */

/*
 * Walk of a class's parameters in file order: par_desc gives the first one and restarts the walk,
 * next gives the one behind the last one given, or null at the end and from then on.  There is one
 * position for each class, whoever walks it, and next without par_desc goes on from where the class
 * stands (a freshly loaded class stands on its first parameter).  A class without parameters gives
 * null, which is no failure.
 */
VDREADER_API sParDesc* get_sClassParUnitedDesc_par_desc(sClassParUnitedDesc* classDesc);
VDREADER_API sParDesc* get_sParDesc_next(sClassParUnitedDesc* classDesc);

/* ---- parameters ---- */

/* 16-bit fields, zero-extended.  Bit 0 of flags set: the parameter's value is a double, else a
 * 32-bit integer. */
VDREADER_API uint32_t get_sParDesc_par_id(const sParDesc* param);
VDREADER_API uint32_t get_sParDesc_flags(const sParDesc* param);
VDREADER_API uint32_t get_sParDesc_scale(const sParDesc* param);

VDREADER_API uint32_t get_sParDesc_par_info(const sParDesc* param);
VDREADER_API uint32_t get_sParDesc_par_info_ex(const sParDesc* param);

VDREADER_API const char* get_sParDesc_db_name(const sParDesc* param); /* 17 */

/*
 * Texts in a language of the writer's numbering: the first entry of that language.  Null if there
 * is none, which is no failure; an entry with an empty text gives an empty string.
 */
VDREADER_API const char* get_sParDesc_short_name(const sParDesc* param, uint16_t lang);
VDREADER_API const char* get_sParDesc_long_name(const sParDesc* param, uint16_t lang);
VDREADER_API const char* get_sParDesc_enum(const sParDesc* param, uint16_t lang);

#ifdef __cplusplus
}
#endif

#endif
