// The plain file over the platform's calls; IFile.h tells what its operations do.

#pragma once

#include "libn/IFile.h"
#include "platform/calls.h"

namespace libn {

class WinFile : public IFile {
  public:
    WinFile() = default;
    ~WinFile() override;
    WinFile(const WinFile&) = delete;
    WinFile& operator=(const WinFile&) = delete;

    bool openExisting(const char* name, std::int32_t accessHint, bool write) override;
    bool openAlways(const char* name, std::int32_t accessHint) override;
    bool create(const char* name, std::int32_t accessHint) override;
    bool read(void* buffer, std::uint64_t n, std::uint64_t* done) override;
    bool write(const void* buffer, std::uint64_t n) override;
    bool seek(const std::int64_t& offset, std::uint32_t origin, std::int64_t* position) override;
    std::int64_t tell() override;
    bool size(std::uint64_t& out) override;
    void close() override;
    const std::string& name() const override { return m_name; }
    bool isOpen() const override;
    bool writeAt(const void* buffer, std::uint64_t n, std::int64_t offset) override;

    // As openAlways, but for writing alone: also a file that may not be read, or whose holder lets
    // others write alone.
    bool openForWriting(const char* name);

    // As write, but at the end of the file, wherever it then is: each piece that the system takes
    // goes behind all that others wrote meanwhile, and the position follows.
    bool append(const void* data, std::uint64_t n);

  private:
    using Write = bool (*)(platform::StorageHandle file, const void* data, std::uint32_t size,
                           std::uint32_t* done);

    bool open(const char* name, platform::StorageAccess access);
    bool writeAll(const void* data, std::uint64_t n, Write call);

    // Null: closed; kInvalidStorage: an open failed.
    platform::StorageHandle m_file = nullptr;
    std::string m_name;
};

} // namespace libn
