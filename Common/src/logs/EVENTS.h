// One open log: the file or stream that lines go to, known by its name.

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>

#include "logs/StreamProvider.h"

struct EVENTS {
    static constexpr std::size_t kNameSize = 257;

    bool isRotate = false;                     // its settings ask for rotation
    std::int32_t rotateDepth = 0;              // number of the oldest copy
    std::unique_ptr<IStreamProvider> provider; // null while the file is not open
    std::recursive_mutex lock;                 // of provider; held while a line is written
    char fileName[kNameSize] = {};             // full path, or a number for a stream
};
