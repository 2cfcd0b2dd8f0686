// Dumps: names, decisions and the thread that writes them.

#pragma once

#include <cstdint>
#include <string>

#include "vdreader/postmortem.h"

// What writing a dump came to.
enum DumpResult : std::uint32_t {
    dumpWritten = 0,
    dumpNoLibrary = 1,   // DBGHELP.DLL cannot be found or loaded
    dumpNoWriter = 2,    // it has no MiniDumpWriteDump
    dumpBadArgument = 3, // unreadable name or pointers, or no thread to show
    dumpNoFile = 4,      // the file cannot be created
    dumpWriteFailed = 5,
    dumpNotTried = 8,
    dumpNoThread = 9, // the dump thread cannot start
};

// The path of the latest dump: 260 characters and a terminator, under dumpLock.
extern char dumpPath[261];

// Makes the day's folder below the working one, and the path of a dump of this moment in dumpPath:
// "full" for a kind other than 0, else "mini".
void makeDumpPath(std::int32_t kind);

// Writes a dump to dumpPath on a thread of its own and waits for it.  With null pointers the dump
// shows a deliberate fault of that thread.  dumpBadArgument, dumpNoThread or dumpWritten, however
// the write itself went.
std::uint32_t writeDumpOnThread(std::int32_t kind, std::uint32_t threadId,
                                sExceptionPointers* pointers);

// Writes a dump on the calling thread to a file of at most 260 characters, whose former content
// goes; any of the codes but dumpNotTried and dumpNoThread.  dumpLock is held by the caller, or by
// the one who waits for it.  Takes nothing from the run-time's heap.
std::uint32_t writeDumpFile(std::int32_t kind, const char* name, std::uint32_t threadId,
                            sExceptionPointers* pointers);

// What happened and where, as the line of a report tells it; nothing for null.
std::string exceptionText(sExceptionPointers* pointers);
