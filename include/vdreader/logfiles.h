/*
 * Log files: where the lines of log.h go.
 *
 * There is no log until one is opened.  The event log is the process's: the first file that is
 * opened as one takes the event lines and the error lines of all threads, until shutdown_logs.  The
 * error log is the calling thread's: each thread that wants its errors in a file of their own opens
 * one, and threads that name the same file share it.  Old files are rotated when a file is opened,
 * at most once a day.  docs/logs.md tells it all to the person who reads the logs.
 *
 * A relative name is taken relative to the folder of the process's executable, where nothing else
 * is said; a name of more than 256 characters is cut.
 *
 * Raised out of the functions that open:
 *   std::runtime_error                   "Failed to init logger.": the event log does not open;
 *                                        "Read ini file error. File...": a read that failed
 *   std::system_error                    no thread for the logger
 *   std::filesystem::filesystem_error    a file could not be renamed or deleted, five times
 *   boost::filesystem::filesystem_error  a folder could not be made, the current one
 *                                        is gone, or the time of a log could not be set
 *   std::bad_alloc
 * C callers are compiled with -fexceptions, so that these pass.
 *
 * Threads: all of these may be called on any thread, but nobody logs while shutdown_logs runs.  A
 * child that fork makes of a process with an open log has neither the logger's thread nor locks
 * that it could rely on: it logs nothing before it runs another program.  A host that unloads the
 * library calls shutdown_logs before that, and not from a function that runs during the unloading.
 */
#ifndef VDREADER_LOGFILES_H
#define VDREADER_LOGFILES_H

#include <stdint.h>

#include "vdreader/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Opens the event log that an ini file names.
 *
 *   key       in its section [Files], null or empty for "EventsLogFileName"; its value is the file,
 *             "events.log" where there is none.  A value without a \ stands in the folder that
 *             "LogFilesFolderName" of the same section names, ".\" where it does not
 *   mark      becomes the calling thread's mark as by util_set_mark, unless null
 *   iniPath   null or empty for sarn.ini in the current folder
 *
 * First of all the folder of the process's executable becomes the process's current folder; a
 * relative `iniPath` is read from there.  Relative names of the host's own files mean others then.
 */
VDREADER_API void init_eventlog(const char* key, const char* mark, const char* iniPath);

/* The same for the calling thread's error log, with "ErrorsLogFileName" and "errors.log".  The
 * current folder stays. */
VDREADER_API void init_errorlog(const char* key, const char* mark, const char* iniPath);

/* init_errorlog(NULL, mark, NULL) and then init_eventlog(NULL, mark, NULL): both logs by the
 * sarn.ini of the folder that is the current one before the call. */
VDREADER_API void init_logs(const char* mark);

/* Does nothing; callers of old have it. */
VDREADER_API void init_dealliblog(void);

/* Opens the named files: the calling thread's error log, then the event log; null or empty for
 * none.  `iniPath` has the settings of rotation, null or empty for none.  `mark` as above.  The
 * current folder stays.  Always 0. */
VDREADER_API int32_t util_init(const char* eventFile, const char* errorFile, const char* mark,
                               const char* iniPath);

/* Makes stats\netevent.log the calling thread's net log. */
VDREADER_API void netutil_init(void);

/* Writes all event lines that were logged before, and closes the event log; it may be opened again.
 * Error logs and net logs stay open until the process ends or unloads the library, and so do the
 * threads' own openings of the event log. */
VDREADER_API void shutdown_logs(void);

/* Has logs that are opened from now on show their lines on the console as well, errors on standard
 * error and events on standard output.  For good.  1 if it was so already, else 0. */
VDREADER_API int32_t EnableForwardLogToConsole(void);

/* Makes the folders of a file's path.  Nothing is made where the path names the current folder or
 * one above it (".\x.log", "..\x.log").  Raises boost::filesystem::filesystem_error after a line
 * "create_tree(PATH) failed. REASON" in the error log, also for a name without any folder. */
VDREADER_API void create_tree(const char* path);

#ifdef __cplusplus
}
#endif

#endif
