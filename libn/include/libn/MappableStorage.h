// A file that is mapped in pieces and grows where a view is wanted past its end.
//
// Others may keep the file open for writing meanwhile.  Nothing here knows what the file holds, and
// nothing here locks: one thread at a time uses an object.  Views are reported to the memory
// tracer.  Failures are raised with raiseText; the texts stand at the operations.

#pragma once

#include <cstdint>
#include <string>
#include <system_error>

#include "platform/calls.h"

// The interface alone.  The order of the virtual operations is binding for other modules.
class MappableStorage {
  public:
    virtual ~MappableStorage() = default;

    // Whether views may overlap one another.
    virtual bool allowsPageOverlap() const = 0;

    // Whether `end`, an offset in bytes, lies past the end of the file.
    virtual bool needsGrow(std::uint64_t end) const = 0;

    // Makes a mapping in the place of the present one, over the file or, where `end` lies past the
    // file, over a file that has grown: to twice its size below 100,000,000 bytes, else by
    // 100,000,000, and at least to `end`.  Views made before stay good.  True if the file was
    // empty.  Raises "MappableStorageFile
    // createMapping:name().c_str()<%s>end<%d>GetLastError()<%d>", after which there is no mapping.
    virtual bool createMapping(std::uint64_t end) = 0;

    // Takes a view away; the size is not looked at.
    // Raises "MappableStorageFile unmapPtr:name()<%s>GetLastError()<%d>".
    virtual void unmapPtr(void* view, std::uint64_t size) = 0;

    // Maps `n` bytes at `offset`, a multiple of allocationGranularity() inside the mapping.
    // Raises "MappableStorageFile mapPtr. Ensure offset is n multiple memory page
    // size.:name()<%s>offset<%d>n<%d>GetLastError()<%d>", after which the object is usable.
    virtual void* mapPtr(std::uint64_t offset, std::uint64_t n) = 0;

    // Opens in mode 2.  True.
    // Raises "MappableStorageFile open CreateFile:name()<%s>error.message().c_str()<%s>".
    virtual bool open() = 0;

    // Empties the file and drops the mapping.  Raises "MappableStorageFile clear SetFilePointer" or
    // "MappableStorageFile clear SetEndOfFile" with ":name()<%s>GetLastError()<%d>".
    virtual void clear() = 0;

    // Closes the file, then the mapping.
    // Raises "MappableStorageFile closeHanle:m_filePath.c_str()<%s>GetLastError()<%d>".
    virtual void close() = 0;

    // The path as it was given.
    virtual const std::string& name() const = 0;

    // Bytes of the file, 0 where it cannot be told.
    virtual std::uint64_t size() const = 0;

    // Whether there is a mapping.
    virtual bool isMapped() const = 0;

    // Opens in one of the modes of WinMappableStorageFile.  False with `error` set on a failure:
    // 22 of the generic category for an empty path, else the system's error.
    virtual bool open(std::uint32_t mode, std::error_code& error) = 0;

    // Reads `count` bytes at `offset`.  `done`, where given, gets the bytes that came.  False for a
    // null buffer, no count, a closed file, a failed seek (all of which leave `done` alone), and
    // where fewer bytes came.
    virtual bool read(void* buffer, std::uint64_t offset, std::uint64_t count,
                      std::uint64_t* done) = 0;
};

// What needs no system.
class MappableStorageFileBase : public MappableStorage {
  public:
    // A null path counts as empty.
    explicit MappableStorageFileBase(const char* path) : m_filePath(path != nullptr ? path : "") {}

    bool allowsPageOverlap() const override { return true; }
    bool needsGrow(std::uint64_t end) const override { return end > size(); }
    const std::string& name() const override { return m_filePath; }

  protected:
    std::string m_filePath;
};

// A file of the system.
//
//   mode  access          others may write   file
//   0     read and write  yes                must exist
//   1     read and write  yes                emptied or made
//   2     read and write  yes                opened or made
//   3     read            no (Windows)       must exist
//   else  as 0
class WinMappableStorageFile final : public MappableStorageFileBase {
  public:
    explicit WinMappableStorageFile(const char* path) : MappableStorageFileBase(path) {}
    // Closes the file, then the mapping.  A failure is told to the error log, and the handle stays.
    ~WinMappableStorageFile() override;
    WinMappableStorageFile(const WinMappableStorageFile&) = delete;
    WinMappableStorageFile& operator=(const WinMappableStorageFile&) = delete;

    bool createMapping(std::uint64_t end) override;
    void unmapPtr(void* view, std::uint64_t size) override;
    void* mapPtr(std::uint64_t offset, std::uint64_t n) override;
    bool open() override;
    void clear() override;
    void close() override;
    std::uint64_t size() const override;
    bool isMapped() const override { return m_mapping != nullptr; }
    bool open(std::uint32_t mode, std::error_code& error) override;
    bool read(void* buffer, std::uint64_t offset, std::uint64_t count,
              std::uint64_t* done) override;

  private:
    void closeHanle(void*& handle, bool (*closeCall)(void*));

    std::uint32_t m_mode = 0;
    platform::StorageHandle m_file = nullptr;
    platform::MappingHandle m_mapping = nullptr;
};

// The system's allocation granularity in bytes, fetched once.  Any thread.
std::uint64_t allocationGranularity();
