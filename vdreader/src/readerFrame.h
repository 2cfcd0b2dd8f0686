// What every exported reader function goes through: guards, the catch frame and the checked getter.

#pragma once

#include <cstdint>
#include <exception>

#include "readerState.h"

// Notes a failure and gives the result of an export that failed.
inline std::int32_t failed(const char* text) {
    readerState().lastError = text;
    return 0;
}

// Guard of the exports that need loaded classes.
inline bool classesAreReady() {
    return readerState().classesReady || failed("classes storage is not initialized") != 0;
}

// Guard of the exports that need the current data too; the classes come first.
inline bool dynParamsAreReady() {
    return classesAreReady() && (readerState().dynParamsReady ||
                                 failed("dynamic parameters storage is not initialized") != 0);
}

// Runs the work of an export.  A std::exception on the way becomes the last error and 0; any other
// exception passes.
template <class Work>
std::int32_t catchFrame(Work work) {
    try {
        return work();
    } catch (const std::exception& failure) {
        return failed(failure.what());
    }
}

// Callback results that mean something.
inline constexpr std::int32_t kGoOn = 1;
inline constexpr std::int32_t kStop = 2;
