/*
 * What a dying, hanging or swelling process leaves behind: structured exceptions and their
 * translation, crash dumps, stack reports, threads ended by force, and notices to the sibling
 * service.
 *
 * A structured exception is a fault that the processor or the system tells a thread of: a bad
 * address, a division by zero, an exhausted stack.  Windows has them; on Linux the fault signals
 * (SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP) become the same records with the same numbers.
 * The library installs nothing by itself on threads of its host.
 */
#ifndef VDREADER_POSTMORTEM_H
#define VDREADER_POSTMORTEM_H

#include <stdbool.h>
#include <stdint.h>

#include "vdreader/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* One structured exception, 152 bytes; on Windows this is EXCEPTION_RECORD. */
typedef struct sExceptionRecord {
    uint32_t code;                  /* 0xC0000005 and its like */
    uint32_t flags;                 /* 0: the thread may go on */
    struct sExceptionRecord* inner; /* an exception behind this one, or null */
    void* address;                  /* where it happened */
    uint32_t parameterCount;        /* 0 to 15 */
    uint64_t parameters[15];        /* for a bad address: 0 read, 1 write, 8 execute; the address */
} sExceptionRecord;

/* An exception and the processor's state at it; on Windows this is EXCEPTION_POINTERS.  `context`
 * is a CONTEXT there and a ucontext_t on Linux.  Good until the handler is left. */
typedef struct sExceptionPointers {
    sExceptionRecord* record;
    void* context;
} sExceptionPointers;

/* Takes a structured exception of its thread.  It throws a C++ exception from where the fault
 * happened; where it returns, the fault goes on as if there were no translator. */
typedef void (*sExceptionTranslator)(unsigned int code, sExceptionPointers* pointers);

/* Makes `translator` the one of the calling thread and returns the former one; null, as at the
 * start of each thread, means that faults take their ordinary way.  Code between the fault and the
 * catch must be compiled so that faults may throw (g++: -fnon-call-exceptions).  On Linux the five
 * fault signals are unblocked on the thread, which gets an alternate signal stack; a thread that
 * blocks them later is ended by its next fault, with its process and without any report. */
VDREADER_API sExceptionTranslator util_set_se_translator(sExceptionTranslator translator);

/* The translator of the family: leaves dump and report (ExcFilterI), tells the sibling service
 * (SendSvctlError) and throws CSEHError (errors.hpp).  Code 1723 writes the warning
 * "RPC error 0x000006BB" instead of both.  Never returns.  What these calls raise comes in place of
 * CSEHError: libn::Dll::LoadError (dll.hpp) from the first notice of a process without the service,
 * std::runtime_error from logs that cannot be opened or a sarn.ini that cannot be read. */
VDREADER_API void seh_translator(unsigned int code, sExceptionPointers* pointers);

/* The family's number for an exception code: 60000 to 60021, or the low 16 bits of a code that has
 * none.  Any thread. */
VDREADER_API uint32_t convert_error(uint32_t code);

/*
 * Tells the sibling service, a library "dwsvctl.dll" that exports SendInfo, of a failure: it gets
 * `destination`, 34 and a record of 920 bytes, good during the call.  What the numbers mean is the
 * service's business.  `text` may be null and is cut at 900 bytes, without a terminator then;
 * `flagOff` 1 leaves the flag in the record off.
 *
 * The first notice of the process loads the library, which stays loaded, from where the system
 * looks for libraries: on Windows also in the working folder, on Linux by that very name in
 * LD_LIBRARY_PATH and the folders of the loader alone; one that is loaded already is taken.  Where
 * it cannot be loaded, that notice raises libn::Dll::LoadError (dll.hpp; "Failed to load DLL file
 * \"dwsvctl.dll\" (CODE). TEXT"), and each later one writes the error line "Can't send extended
 * error notification: SVCTL SendInfo function is missing".  Where SendInfo is missing, "dwevs Can't
 * load dw_svctl_SendInfo function" comes first, once.  Any thread; SendInfo is called on it.
 */
VDREADER_API void SendSvctlError(uint32_t destination, uint32_t code, uint16_t kind,
                                 uint32_t value1, uint32_t value2, uint8_t flagOff,
                                 const char* text);

/*
 * Dumps.  They go into Dumps/YYYYMMDD below the working folder, as fullHHMMSS_mmm.dmp or
 * miniHHMMSS_mmm.dmp; two of one millisecond share a name and the later one stays.  On Windows
 * they are minidumps, on Linux ELF cores.  All dumps and stack reports of a process are made one
 * after another; any thread.
 */

/* The filter of a crash: dump (if automatic dumps are on), exception report and stack in the logs,
 * which it opens if they are not.  1: the system is to run the handler that asked.  The thread's
 * lines carry the mark "ECTCH" from here on.  `pointers` may be null only where automatic dumps are
 * off.  std::runtime_error where sarn.ini is there and cannot be read or a log cannot be made; the
 * report ends there. */
VDREADER_API int32_t ExcFilterI(sExceptionPointers* pointers);

/* Writes a dump of the process with the exception.  Type 2 asks for a full one, which is granted to
 * the first three crash dumps of a process if "fulloncrash" of the section "dumps" of sarn.ini is
 * not 0; any other type is handed to the writer as it is.  `onlyIfAuto` not 0: only where automatic
 * dumps are on.  Codes 1700 to 1791 leave a line instead of a dump.  Nothing tells of a failure;
 * the line "Crash dump [...] done" names the path. */
VDREADER_API void CreateProcessCrashDump(int32_t type, sExceptionPointers* pointers,
                                         int32_t onlyIfAuto);

/* Writes a dump of the running process, which goes on; the dump shows a deliberate fault of a
 * thread of its own.  Type 2 is a full one; `limited` makes it count with the crash dumps and turn
 * into a mini one above three. */
VDREADER_API void CreateProcessDump(int32_t type, bool limited, bool onlyIfAuto);

/* Turns automatic dumps on or off, which also ends the reading of "auto" from sarn.ini. */
VDREADER_API void EnableAutoDumpCreation(bool enable);

/* Whether automatic dumps are on: what was set, or "auto" of the section "dumps" of sarn.ini, read
 * once.  Always false after SetDisableDumpsOnProcessStop.  std::runtime_error, also from the calls
 * above that ask this, where the file is there and cannot be read. */
VDREADER_API bool IsAutoDumpCreationEnabled(void);

/* Whether more than two dumps were counted, so that no further crash dump is a full one. */
VDREADER_API bool IsFullDumpLimitExceeded(void);

/* For a process that goes down: no automatic dump any more. */
VDREADER_API void SetDisableDumpsOnProcessStop(void);

/* Writes the list of modules and the stack of `context` (a CONTEXT on Windows, a ucontext_t on
 * Linux) to the event log; null stands for the calling thread.  The "%" of file and function names
 * are conversions there.  Any thread; reports follow one another. */
VDREADER_API void ServerStackWalk(const void* context);

/* The same for the calling thread, by the way of the system's own context of it. */
VDREADER_API void DrawCurrentStack(void);

/* A thread as its owner holds it, 16 bytes: the handle (a HANDLE; on Linux its pthread_t, neither
 * joined nor detached) and the system's identifier. */
typedef struct sThreadObject {
    void* handle;
    uint32_t id;
} sThreadObject;

/*
 * Ends a hanging thread by force, after the line "NTerminateThread. Terminating thread ID." in the
 * event log and, where automatic dumps are on, a mini dump.  With an exit code other than 0 the
 * thread is suspended first, and modules and stack are reported there too.  Not 0: it was ended.
 *
 * 0, with one more line, where the thread has ended before ("Thread is not active. ExitCode
 * [CODE]") or a call of the system fails: "GetExitCodeThread GLE [CODE]", "SuspendThread GLE
 * [CODE]", "GetThreadContext GLE [CODE]", "TerminateThread failed with error code CODE.".  Behind
 * the last two a thread that was suspended stays so.
 *
 * No destructor runs, and what the thread held stays held, locks of the heap too.  On Linux the
 * thread is stopped by a real-time signal (SIGRTMAX-3, or the next lower one that has no handler),
 * by a tracer where it blocks that one, and is to be joined afterwards as any other; the library is
 * not unloaded any more.  Any thread; with the calling thread itself it never returns, and with an
 * exit code other than 0 that thread stays suspended for ever.
 */
VDREADER_API int32_t NTerminateThread(void* thread, uint32_t exitCode);

/* The same, and detaches the object: its handle is closed (on Linux the thread is released, so it
 * must not be joined), both fields are 0, the result is 1.  The line is
 * "NTerminateThread.Terminating thread ID." with the object's identifier.  An identifier of 0
 * raises std::system_error (invalid argument), and a handle that cannot be closed raises one with
 * the system's code, both when the thread is gone already; the object is left as it was then, as
 * it is behind a result of 0. */
VDREADER_API int32_t NTerminateThreadEx(sThreadObject* thread, uint32_t exitCode);

#ifdef __cplusplus
}
#endif

#endif
