// What stands under an open log: a file, or a stream of somebody else's.

#pragma once

#include <cstdint>
#include <iosfwd>

#include "libn/WinFile.h"

class IStreamProvider {
  public:
    virtual ~IStreamProvider() = default;
    virtual bool isGood() const = 0;
    // Appends the bytes; false where not all of them were taken.
    virtual bool write(const void* data, std::uint64_t size) = 0;
};

class FileStreamProvider : public IStreamProvider {
  public:
    bool isGood() const override;
    // Always at the end of the file, wherever other writers of it have moved that.
    bool write(const void* data, std::uint64_t size) override;

    libn::WinFile& file() { return m_file; }

  private:
    libn::WinFile m_file;
};

// The stream outlives the object.
class LinkedStreamProvider : public IStreamProvider {
  public:
    explicit LinkedStreamProvider(std::ostream& stream) : m_stream(&stream) {}
    bool isGood() const override;
    bool write(const void* data, std::uint64_t size) override;

  private:
    std::ostream* m_stream;
};
