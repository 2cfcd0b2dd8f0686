// A whole file in one mapping that other processes share: what the limits read from.

#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cstddef>
#include <string>

#include "support.h"

namespace bench {

class MappedFile {
  public:
    explicit MappedFile(const char* path) {
        const int file = ::open(path, O_RDWR | O_CLOEXEC);
        struct stat status = {};
        if (file < 0 || ::fstat(file, &status) != 0)
            stop(std::string("cannot open ") + path);
        m_size = static_cast<std::size_t>(status.st_size);
        void* view = ::mmap(nullptr, m_size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        ::close(file);
        if (view == MAP_FAILED)
            stop(std::string("cannot map ") + path);
        m_bytes = static_cast<char*>(view);
    }
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;
    ~MappedFile() { ::munmap(m_bytes, m_size); }

    char* at(std::size_t offset) const { return m_bytes + offset; }
    std::size_t size() const { return m_size; }

  private:
    char* m_bytes = nullptr;
    std::size_t m_size = 0;
};

} // namespace bench
