// A file as one range of bytes that is read, written and filled by position, while only parts of it
// are mapped, within a limit of memory.
//
// Positions are triples: byte base + elemSize * index; lengths are count * elemSize bytes.  The
// operations of FileMap copy, so their callers see no view.  What lies past the end of the file
// makes the file grow, also for a read; see MappableStorage::createMapping.  There is no flush: the
// file and other processes see a write at once.
//
// Failures are those of MappableStorage, and of every access
// "libn::FileMap memory limit exceeded:name()<%s>newPage.size<%d>m_maxMemUsage<%d>", before which
// nothing was mapped for the part in question.  After a failure the object is usable.
//
// Threads: one at a time for each object.

#pragma once

#include <cstdint>
#include <filesystem>

#include "libn/Noncopyable.h"

namespace libn {

// The order of the virtual operations is binding for other modules.
class FileMap : public Noncopyable {
  public:
    virtual ~FileMap() = default;

    // Opens the file for reading and writing, shared both ways, and makes it where there is none.
    // `maxMemUsage` is the limit in bytes.  True if the file was empty; it then has one byte.  An
    // object that is open is closed first by its owner.
    virtual bool open(const std::filesystem::path& path, std::uint64_t maxMemUsage) = 0;

    virtual void close() = 0;

    // Whether open was ever called; close does not change the answer.
    virtual bool isOpen() const = 0;

    // Empties the file, which then has one byte.
    virtual void clear() = 0;

    virtual void write(std::uint64_t base, std::uint64_t elemSize, std::uint64_t index,
                       std::uint64_t count, const void* source) = 0;
    virtual void read(std::uint64_t base, std::uint64_t elemSize, std::uint64_t index,
                      std::uint64_t count, void* destination) = 0;

    // Reads `byteCount` bytes from `byteOffset` bytes behind the element on.  Where that is inside
    // an element, as many bytes as lie in front of it there may be missing at the end of the
    // destination, which then keeps what it held.  An elemSize of 0 is a division fault.
    virtual void readBytes(std::uint64_t base, std::uint64_t elemSize, std::uint64_t index,
                           std::uint64_t byteOffset, std::uint64_t byteCount,
                           void* destination) = 0;

    virtual void fill(std::uint64_t base, std::uint64_t elemSize, std::uint64_t index,
                      std::uint64_t count, std::uint8_t value) = 0;
};

struct FileMapState;

// The one implementation, on a WinMappableStorageFile: a cache of views in units of 65,536 bytes.
// Views that would pass the limit make all others go.  An access to one of the five views that were
// last turned to costs neither an allocation nor a call of the system.
//
// Usage goes to the event log when it has changed by more than a tenth of the limit:
// "MappableStorage: NAME pagesCount: N size: BYTES".
class NewFileMap : public FileMap {
  public:
    NewFileMap();
    // Closes.  A failure there is reported and ends the process.
    ~NewFileMap() override;

    bool open(const std::filesystem::path& path, std::uint64_t maxMemUsage) override;
    void close() override;
    bool isOpen() const override;
    void clear() override;
    void write(std::uint64_t base, std::uint64_t elemSize, std::uint64_t index, std::uint64_t count,
               const void* source) override;
    void read(std::uint64_t base, std::uint64_t elemSize, std::uint64_t index, std::uint64_t count,
              void* destination) override;
    void readBytes(std::uint64_t base, std::uint64_t elemSize, std::uint64_t index,
                   std::uint64_t byteOffset, std::uint64_t byteCount, void* destination) override;
    void fill(std::uint64_t base, std::uint64_t elemSize, std::uint64_t index, std::uint64_t count,
              std::uint8_t value) override;

    // The word of 8 bytes at 8 * index, as read gives it.
    std::uint64_t readWord(std::uint64_t index);

    // Reads `size` bytes at position `pos`, without a copy where one view holds them all: gives
    // that place, else `buffer` with the bytes in it.  Good until the next operation.
    const char* readInPlace(std::uint64_t pos, std::uint64_t size, char* buffer);

  private:
    friend FileMapState& stateOf(NewFileMap& map) { return *map.m_state; }

    void readPieces(std::uint64_t pos, std::uint64_t size, char* to);

    FileMapState* m_state;
};

} // namespace libn
