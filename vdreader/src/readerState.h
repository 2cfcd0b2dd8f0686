// The state of the readers: one for the process, made at load and released at unload.
//
// No lock: one thread at a time uses the readers.

#pragma once

#include <memory>
#include <string>

#include "Classes/classFilter.h"
#include "Classes/classModel.h"
#include "vdreader/curdata.hpp"

struct ReaderState {
    // Text of the last failure; a success leaves it.
    std::string lastError;

    bool classesReady = false;
    ClassFilter classFilter;
    ClassModel model;

    // Null before the first load; after a failed one, not ready with whatever stands here.
    std::unique_ptr<TCurrentData> curData;
    bool dynParamsReady = false;

    // Usable before any initialisation: relative to the working directory.
    std::string alertsFile = "alert.vd";
    std::string futLimitsFile = "flimit.vd";
    std::string futPositionsFile = "fclipos.vd";
};

// Always the same object, so that one call does for a whole function.
[[gnu::const]] ReaderState& readerState();
