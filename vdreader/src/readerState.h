// The state of the readers: one for the process, made at load and released at unload.
//
// No lock: one thread at a time uses the readers.

#pragma once

#include <string>

#include "Classes/classFilter.h"
#include "Classes/classModel.h"

struct ReaderState {
    // Text of the last failure; a success leaves it.
    std::string lastError;

    bool classesReady = false;
    ClassFilter classFilter;
    ClassModel model;

    // Usable before any initialisation: relative to the working directory.
    std::string futLimitsFile = "flimit.vd";
    std::string futPositionsFile = "fclipos.vd";
};

ReaderState& readerState();
