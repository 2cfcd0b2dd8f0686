// One block of memory that shows at many addresses, as the views of a mapped file do.
//
// Each alias spans the whole block; with the address sanitizer all of it is out of bounds until a
// part is opened, so that a read past a view shows although the bytes behind it exist.

#pragma once

#include <cstddef>
#include <cstdio>
#include <cstdlib>

#if defined(_WIN32)
#  include <windows.h>
#else
#  include <sys/mman.h>
#  include <unistd.h>
#endif

#if defined(__SANITIZE_ADDRESS__)
#  define FUZZ_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#  if __has_feature(address_sanitizer)
#    define FUZZ_ADDRESS_SANITIZER 1
#  endif
#endif
#if defined(FUZZ_ADDRESS_SANITIZER)
#  include <sanitizer/asan_interface.h>
#endif

namespace fuzzing {

inline void closeBytes([[maybe_unused]] void* begin, [[maybe_unused]] std::size_t size) {
#if defined(FUZZ_ADDRESS_SANITIZER)
    __asan_poison_memory_region(begin, size);
#endif
}

inline void openBytes([[maybe_unused]] void* begin, [[maybe_unused]] std::size_t size) {
#if defined(FUZZ_ADDRESS_SANITIZER)
    __asan_unpoison_memory_region(begin, size);
#endif
}

// Zeroes at first.  Never given back: the targets keep theirs as long as the process lives.
class AliasedMemory {
  public:
    explicit AliasedMemory(std::size_t size) : m_size(size) {
#if defined(_WIN32)
        m_block = ::CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                       static_cast<DWORD>(size), nullptr);
        check(m_block != nullptr);
#else
        m_block = ::memfd_create("storage", MFD_CLOEXEC);
        check(m_block >= 0 && ::ftruncate(m_block, static_cast<off_t>(size)) == 0);
#endif
    }
    AliasedMemory(const AliasedMemory&) = delete;
    AliasedMemory& operator=(const AliasedMemory&) = delete;

    char* makeAlias() const {
#if defined(_WIN32)
        void* alias = ::MapViewOfFile(m_block, FILE_MAP_WRITE, 0, 0, m_size);
        check(alias != nullptr);
#else
        void* alias = ::mmap(nullptr, m_size, PROT_READ | PROT_WRITE, MAP_SHARED, m_block, 0);
        check(alias != MAP_FAILED);
#endif
        closeBytes(alias, m_size);
        return static_cast<char*>(alias);
    }

    std::size_t size() const {
        return m_size;
    }

  private:
    static void check(bool made) {
        if (!made) {
            std::perror("aliased memory");
            std::abort();
        }
    }

    std::size_t m_size;
#if defined(_WIN32)
    HANDLE m_block;
#else
    int m_block;
#endif
};

} // namespace fuzzing
