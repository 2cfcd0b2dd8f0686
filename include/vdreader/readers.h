/*
 * Readers of the family's data files: initialisation, walks and the last failure.
 *
 * Every reader has one state for the whole process and there is no context object.  The readers of
 * dynamic parameters and alerts are initialised after the classes reader; the two futures readers
 * depend on no other.  A reader may be initialised anew whenever no walk of it is running, so not
 * from one of its own callbacks.  Nothing shuts a reader
 * down: its state is released when the library is unloaded.
 *
 * Results: 1 for success, 0 for failure.  After 0, get_vdreader_error() tells why; a success does
 * not clear an older text.
 *
 * Threads: no lock is taken here.  One thread at a time uses the readers, or the caller keeps order
 * itself.  A callback may call getters and start other walks.
 *
 * Null: an ini path, a section or a callback that is null is not tested unless a function says so;
 * the call faults.
 *
 * Ini paths are taken as they stand, so relative ones count from the working directory.
 *
 * C++ callers: an exception that derives from std::exception and leaves a callback ends a walk with
 * 0 and its what() as the last error, in for_each_class, for_each_alert, for_each_futlimit and
 * for_each_futposition.  All other exceptions, and all exceptions from a callback of the security
 * walks and of for_each_dynamic_params, reach the caller of the walk.  Where memory runs out, the
 * last error is the text of std::bad_alloc.
 */
#ifndef VDREADER_READERS_H
#define VDREADER_READERS_H

#include <stdint.h>

#include "vdreader/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* One class with its parameters and securities.  Good until another class file takes its place. */
typedef struct sClassParUnitedDesc sClassParUnitedDesc;

/* One parameter of a class (a PARAMS_DESC of descriptors.hpp).  Valid as long as its class. */
typedef struct PARAMS_DESC sParDesc;

/* One security of a class (a SECURITY_DESC of descriptors.hpp).  Valid as long as its class. */
typedef struct SECURITY_DESC sSecurityDesc;

/* One change record of the current data, laid out in dynparams.h, and the latest values of one
 * security. */
typedef struct sDynParams sDynParams;
typedef struct sLastDynParams sLastDynParams;

/* One alert.  Valid only during the callback that it was given to. */
typedef struct sAlertDesc sAlertDesc;

/* One futures limit.  Valid only during the callback that it was given to. */
typedef struct sFutLimit sFutLimit;

/* One futures position.  Valid only during the callback that it was given to. */
typedef struct sFutPosition sFutPosition;

/*
 * Callbacks.  Result 1 goes on with the next record.  Result 2 stops the walk: the class and
 * security walks then return 0, all others 1.  Any other result stops the walk, which returns 0.  A
 * walk that a callback stopped leaves the last error as it was.
 */
typedef int32_t (*ClassCallback)(sClassParUnitedDesc* classDesc);
typedef int32_t (*SecurityCallback)(sClassParUnitedDesc* classDesc, sSecurityDesc* security);
typedef int32_t (*DynParamsCallback)(sDynParams* record);
typedef int32_t (*AlertCallback)(sAlertDesc* alert);
typedef int32_t (*FutLimitCallback)(sFutLimit* limit);
typedef int32_t (*FutPositionCallback)(sFutPosition* position);

/*
 * Text of the last failure of any reader or checked getter, "Unknown error" before the first one.
 * Never null. The text is good until the next failure.
 */
VDREADER_API const char* get_vdreader_error(void);

/* ---- classes and securities: class.vd ---- */

/*
 * Loads the file that key `classes` (default "class.vd") of `section` in `iniFile` names, and keeps
 * it in memory as it is at this moment.  Key `class_filter` restricts the load: "A,B" keeps the
 * classes of these codes, "-A,B" leaves them out.  Blanks around a code count.  The direction of
 * the filter lasts for the process: every "-" turns it, and neither a new initialisation nor an
 * empty filter turns it back.
 *
 * A file name with a drive letter or a leading double backslash (on Linux: with a leading / or \)
 * stands as it is.  "." and ".." in front count from the host's executable: .\x is beside it, ..\x
 * one folder higher.  Any other name is taken in the folder of the host's executable.  Names are
 * cut at 259 characters.  A missing ini file or key gives the default name.
 *
 * On entry the reader is no longer ready, and a failure leaves it so.  Pointers of an earlier load
 * end when the new file has been opened and its head found good.
 *
 * Failures of every load: "reader for classes can not be initialized" (the file does not open;
 * "Failed to open " and the path also go to standard error), "vd-file '%s' has invalid format",
 * "vd-file '%s' has invalid head", "'%s' has invalid format", "'%s' has invalid format version
 * %#x", "class.vd has invalid format", "STORE_CLASS_DESC has an invalid record format (index=%d)",
 * "STORE_CLASS_DESC has an invalid record magic (index=%d)", "securitiesSize has invalid record
 * format", "paramsSize has invalid record format", "vector too long" (a count that is negative or
 * asks for more than 1 GiB), "classes storage is empty" (no class was kept).  Of this function
 * alone: "Read ini file error. File%s line:%d" (%s without a blank in front), and "reader for
 * classes can not find 'classes' setting or setting is empty".
 */
VDREADER_API int32_t init_vdreader_classes(const char* iniFile, const char* section);

/*
 * The same for a named file, without reading a filter; a filter direction from an earlier "-" still
 * holds, and then nothing is kept.  Failures: those of every load, and "provided classes file name
 * is empty" for a null or empty name.
 */
VDREADER_API int32_t init_vdreader_classes_file(const char* fileName);

/* Walks all classes in file order.  Not ready: "classes storage is not initialized". */
VDREADER_API int32_t for_each_class(ClassCallback callback);

/*
 * Walks all securities of all classes in file order.  A null callback fails with
 * "Invalid argument: for_each_security"; not ready: "classes storage is not initialized".
 */
VDREADER_API int32_t for_each_security(SecurityCallback callback);

/*
 * Walks the securities of every class with this code, compared byte by byte.  Where no class has
 * the code there is nothing to walk, and the result is 1.  A null callback and a null or empty code
 * fail with "Invalid argument: for_each_security_in_class"; not ready: "classes storage is not
 * initialized".
 */
VDREADER_API int32_t for_each_security_in_class(const char* classCode, SecurityCallback callback);

/* ---- dynamic parameters: data.vd ---- */

/*
 * Takes the file name from key `dynparams` (default "data.vd") of `section` in `iniFile`, by the
 * rule for names told at init_vdreader_classes, and keeps the file open: its slots stay mapped
 * until the next initialisation.  On entry the reader is no longer ready, and a failure leaves it
 * so.
 *
 * The file is opened for reading and writing, shared with a server; curdata.hpp tells what a load
 * changes in it.  An empty file is laid out, 54 MB and more.
 *
 * Failures: "classes storage is not initialized" (classes come first), "Read ini file error. File%s
 * line:%d", "vdreader can not find 'dynparams' setting or setting is empty", "alerts file " and the
 * path and " can not be opened", "File type is incorrect", and the others of TCurrentData::LoadData
 * in curdata.hpp.  The first four leave the file of an earlier initialisation open; the others have
 * let go of it.
 */
VDREADER_API int32_t init_vdreader_dyn_params(const char* iniFile, const char* section);

/* The same for a named file, by the same rule for names.  Also fails with "provided dynparams file
 * name is empty" for a null or empty name. */
VDREADER_API int32_t init_vdreader_dyn_params_file(const char* fileName);

/*
 * Walks the change records from the first page of the journal on, as far as the server has written
 * them.  Records of a class or security that is not loaded are left out.  A record with a negative
 * running number ends the walk with 1.  All records come in the same buffer.  The journal is
 * read in pages: what the server adds to a page after the walk has read it is left out, also where
 * the walk goes on to a following page, and comes in the next walk.
 *
 * The walk keeps some 83 KB of memory for the life of the process: a caller that walks again and
 * again pays for it each time.
 *
 * Failures: "classes storage is not initialized", "dynamic parameters storage is not initialized".
 * A failure of the file is not caught: a CError or COSError reaches the caller, as does any
 * exception of the callback.  A record whose mask is longer than 16 bytes breaks the file's
 * contract: a line on standard error, and the process ends with the structured exception 0xC0000417
 * on Windows, by abort on Linux.
 */
VDREADER_API int32_t for_each_dynamic_params(DynParamsCallback callback);

/* ---- alerts: alert.vd ---- */

/*
 * Takes the file name from key `alerts` (default "alert.vd") of `section` in `iniFile`, by the rule
 * for names told at init_vdreader_classes, and tries to open it.  A file of any content will do.
 *
 * Failures: "classes storage is not initialized" where no classes are loaded, though nothing of
 * them is used; "alerts file " and the path and " can not be opened", after which the reader holds
 * the configured name as it stands in the ini file; "Read ini file error. File%s line:%d" and
 * "vdreader can not find 'alerts' setting or setting is empty", which leave the name as it was.
 */
VDREADER_API int32_t init_vdreader_alerts(const char* iniFile, const char* section);

/*
 * Walks the alerts that the file held when the walk began; it needs no initialisation.  Before any
 * init_vdreader_alerts the name is "alert.vd" in the working directory.  On Windows the name is
 * taken in the code page of the current C locale.
 *
 * The file is opened for reading and writing, shared with a server.  A missing file is made, and a
 * file that is no alert file is EMPTIED and laid out anew, with a line in the event log; the walk
 * then returns 1 without a call.  A walk over a good file may lengthen it with zeros where an alert
 * stands near its end, and adds a table where a number has none; it changes no alert.
 *
 * A file that a server makes longer during a walk may end it with the `mapPtr` failure below; the
 * caller walks again.  A walk maps some 3,276,800 bytes at a time (on Linux up to four times as
 * much, in windows that hold its views).  Alerts are decoded one by one; their memory is used again
 * for the next one.
 *
 * Failures, after the alerts in front were handed out:
 * "libn::storage::Array::getPos:recNo<%d>" (an alert is missing),
 * "libn::storage::RecNo index overflow:recNo<%d>" (a number of 268,435,456 or more),
 * "libn::storage word beyond reach:NAME<%d>" (a damaged index; NAME is root, table, head, body or
 * nextFree), "vector too long" (a stored length of more than 1 GiB).
 * Failures of the file: "MappableStorageFile open
 * CreateFile:name()<%s>error.message().c_str()<%s>", "MappableStorageFile
 * createMapping:name().c_str()<%s>end<%d>GetLastError()<%d>", "MappableStorageFile mapPtr. Ensure
 * offset is n multiple memory page size.:name()<%s>offset<%d>n<%d>GetLastError()<%d>",
 * "MappableStorageFile unmapPtr:name()<%s>GetLastError()<%d>",
 * "MappableStorageFile clear SetFilePointer:name()<%s>GetLastError()<%d>",
 * "MappableStorageFile clear SetEndOfFile:name()<%s>GetLastError()<%d>",
 * "MappableStorageFile closeHanle:m_filePath.c_str()<%s>GetLastError()<%d>".
 * Where a file cannot be released even at the second try, the failure is reported to the error log
 * and the process ends.
 */
VDREADER_API int32_t for_each_alert(AlertCallback callback);

/* ---- futures limits: flimit.vd ---- */

/*
 * Takes the file name from key `flimits` (default "flimit.vd") of `section` in `iniFile`, by the
 * rule for names told at init_vdreader_classes, and tries to open it.
 *
 * Failures: "alerts file " and the path and " can not be opened", after which the reader holds the
 * configured name as it stands in the ini file; "Read ini file error. File%s line:%d" and "vdreader
 * can not find 'flimits' setting or setting is empty", which leave the name as it was.
 */
VDREADER_API int32_t init_vdreader_futlimits(const char* iniFile, const char* section);

/*
 * Walks the records of the file as they are now, all in one buffer that the callback may write to.
 * The walk ends at the length that the file had at its start, taken as a 32-bit number, or where
 * the file ends before; a short record at the end is left out.  Records are read ahead, as many as
 * have been walked and at most 1 MiB of them.
 *
 * Before any init_vdreader_futlimits the name is "flimit.vd" in the working directory.  Every walk
 * leaves one C stream open for the life of the process: a caller that walks hundreds of times runs
 * out of them.  Failure: "flimits file " and the name and " can not be opened".
 */
VDREADER_API int32_t for_each_futlimit(FutLimitCallback callback);

/* ---- futures positions: fclipos.vd ---- */

/* As init_vdreader_futlimits, with key `fclipos` and default "fclipos.vd".  The first failure has
 * the same text, the last names 'fclipos'. */
VDREADER_API int32_t init_vdreader_futpositions(const char* iniFile, const char* section);

/*
 * As for_each_futlimit, for "fclipos.vd".
 * Failure: "fclipos file " and the name and " can not be opened".
 */
VDREADER_API int32_t for_each_futposition(FutPositionCallback callback);

#ifdef __cplusplus
}
#endif

#endif
