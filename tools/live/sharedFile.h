// A file that several processes have open and mapped at the same time: opening, size, growth and
// views.  A mapping of the server's own, which shares no code with the library whose readers it is
// there to exercise.  Both systems' halves are in sharedFile.cpp.

#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

namespace live {

// What went wrong with a file.  The text names the file.
struct Error : std::runtime_error {
    enum class Kind { CannotOpen, Malformed, CannotGrow };
    Error(Kind what, const std::string& text) : std::runtime_error(text), kind(what) {}
    Kind kind;
};

// A piece of a file in memory, writable, seen by every process that has the same piece mapped.
// Stays good when the file grows and when its SharedFile goes.
class View {
  public:
    View() = default;
    ~View() { release(); }
    View(View&& other) noexcept;
    View& operator=(View&& other) noexcept;

    // The byte at `offset` of the file, which the view must cover.
    unsigned char* at(std::uint64_t offset) const { return m_bytes + (offset - m_offset); }

    bool covers(std::uint64_t offset, std::uint64_t count) const {
        return m_bytes && offset >= m_offset && offset - m_offset <= m_size &&
               count <= m_size - (offset - m_offset);
    }

  private:
    friend class SharedFile;
    void release();

    unsigned char* m_bytes = nullptr;
    std::uint64_t m_offset = 0; // of the first byte in the file
    std::uint64_t m_size = 0;
};

class SharedFile {
  public:
    // Opens an existing file for reading and writing and lets others do the same.  Raises Error
    // CannotOpen "cannot open ", the path, ": " and the system's reason.
    explicit SharedFile(const std::string& path);
    ~SharedFile();
    SharedFile(const SharedFile&) = delete;
    SharedFile& operator=(const SharedFile&) = delete;

    const std::string& path() const { return m_path; }

    // The size at this moment: another process may make the file grow at any time.
    std::uint64_t size() const;

    // Makes the file reach to `size` at least, with zeros behind what was there, and space on the
    // disk for the bytes from `offset` on where the system can promise it.  Never makes it shorter,
    // also when another process makes it grow meanwhile.  Raises Error CannotGrow.
    void growTo(std::uint64_t offset, std::uint64_t size);

    // The bytes from `offset` on, which the file must hold, otherwise Error Malformed.  Raises
    // Error CannotOpen where the system refuses.
    View map(std::uint64_t offset, std::uint64_t count) const;

  private:
    [[noreturn]] void fail(Error::Kind kind, const char* what) const;

    std::string m_path;
    std::intptr_t m_file = -1;
};

} // namespace live
