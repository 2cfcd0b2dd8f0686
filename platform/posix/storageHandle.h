// What the files of the POSIX half share: the object behind a handle, and the forms of calls.

#pragma once

#include <unistd.h>

#include <cerrno>

#include "platform/calls.h"

namespace platform::system {

struct File {
    int file;
    bool appends = false; // see appendStorage; calls of one file do not overlap
};

// -1, which every call refuses, for no file.
inline int fileOf(StorageHandle handle) {
    return handle == nullptr || handle == kInvalidStorage ? -1 : static_cast<File*>(handle)->file;
}

// Closes the descriptor of a file or mapping once and deletes the object.  The system gives a
// descriptor back whatever else it reports, and one that was none is told of once: a second close
// would hit whichever file got the number since.
template <class Object>
bool closeOnce(Object* object) {
    if (object == nullptr) {
        errno = EBADF;
        return false;
    }
    if (object->file != -1 && ::close(object->file) != 0 && errno == EBADF) {
        object->file = -1;
        return false;
    }
    delete object;
    return true;
}

template <class Call>
auto retried(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR)
        result = call();
    return result;
}

} // namespace platform::system
