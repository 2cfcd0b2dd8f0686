// Where finished lines go.
//
// The logs themselves belong to a higher layer, which puts its functions here; until then lines go
// nowhere.

#pragma once

// Each takes the line, terminated; it stands in the calling thread's buffer and is good during the
// call.  A failed write is not raised; want of memory in a drain of the logger's queue is.
struct LogSinks {
    void (*errors)(const char* line);     // error, warning, oserrori, socerrori
    void (*events)(const char* line);     // event, devent
    void (*exceptions)(const char* line); // exc_h_print
    void (*netEvents)(const char* line);  // netevent
};

// Changed while no other thread logs.
extern LogSinks logSinks;
