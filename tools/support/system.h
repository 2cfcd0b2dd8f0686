// What the programs need of the system beyond the standard library: standard output as bytes, full
// paths, and a private temporary file.  With the other files of this folder the only place of the
// programs that knows the systems apart.

#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tool {

// Makes standard output carry bytes as they are given, and a write to a pipe without a reader fail
// instead of ending the process.  A terminal is told that UTF-8 comes; its setting returns when
// the object goes.  One object for the life of the program.
class StandardOutput {
  public:
    StandardOutput();
    ~StandardOutput();
    StandardOutput(const StandardOutput&) = delete;
    StandardOutput& operator=(const StandardOutput&) = delete;

    bool isTerminal() const { return m_terminal; }

    enum class Result { Written, NoReader, Failed };

    // Writes all bytes.  After Failed, errno tells why.
    Result write(std::string_view bytes);

    // Whether somebody may still read: false when it is known that nobody does.  Where the system
    // does not tell without a write, true.
    bool hasReader() const;

    // Closes standard output, where a late failure may show.
    Result close();

  private:
    bool m_terminal = false;
    unsigned m_formerCodePage = 0;
};

#ifdef _WIN32
inline constexpr char kPathSeparator = '\\';
#else
inline constexpr char kPathSeparator = '/';
#endif

// Whether a file must be closed before it can be removed.
inline constexpr bool kOpenFilesStay = kPathSeparator == '\\';

// A file that takes everything and holds nothing.
extern const char* const kNullDevice;

// The full path of the running program, an empty text if the system does not tell.
std::string executablePath();

// The full path of `name`, counted from the working directory, without touching the file; an empty
// text if there is none.  Bytes outside ASCII stand as they are.
std::string absolutePath(const std::string& name);

// `folder` and `name` with the system's separator between them.
std::string joinPath(const std::string& folder, std::string_view name);

// Whether the readers take a path for what it says: where / separates they take a \ for one too.
bool isUnambiguous(const std::string& path);

// Whether there is a folder, or a file that can be opened for reading, under this name.
bool isFolder(const std::string& name);
bool isReadable(const std::string& name);

// Whether the file can be opened for writing; it is not changed.
bool isWritable(const std::string& name);

// Up to `count` bytes from the start of the file, fewer where it is shorter or cannot be read.
std::string firstBytes(const std::string& name, std::size_t count);

// A new file that only this user can read, removed when the object goes.
class TemporaryFile {
  public:
    // Raises std::runtime_error "cannot write a temporary file: " and the system's reason.
    explicit TemporaryFile(std::string_view contents);
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const std::string& path() const { return m_path; }

  private:
    std::string m_path;
};

} // namespace tool
