// Files in memory behind the table of platform calls, and calls that fail on purpose.
//
// While an object lives, every file that the library opens comes from here: the name behind the
// last separator decides, and a name that was not put does not open.  Each call of the table counts
// as one, so that "the Nth call fails" can be looped over.  One object at a time, one thread.

#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <string_view>

#include "platform/calls.h"
#include "platform/error.h"

namespace fuzzing {

enum class Call { Open, Read, Size, OpenStream, Seek, Tell, ReadStream, Program, Large };
inline constexpr int kCalls = 9;

struct FaultPlan {
    std::uint32_t shortCounts = 0; // not 0: reads give 1 to all of the bytes, by this seed
    std::uint32_t failingCall = 0; // this call, counted from 1, fails
    bool failsForGood = false;     // and so do all behind it
    std::set<Call> failing;        // calls of these kinds always fail

    bool mayFail() const { return failingCall != 0 || !failing.empty(); }
};

// Ends the program: a file handle was used wrongly.
[[noreturn]] inline void misused(const char* what) {
    std::fprintf(stderr, "platform call misused: %s\n", what);
    std::abort();
}

class MemoryFiles {
  public:
    MemoryFiles() : m_system(platform::calls) {
        s_current = this;
        platform::Calls& calls = platform::calls;
        calls.openForReading = openForReading;
        calls.readAt = readAt;
        calls.fileSize = fileSize;
        calls.closeFile = closeFile;
        calls.openStream = openStream;
        calls.seekStream = seekStream;
        calls.tellStream = tellStream;
        calls.readStream = readStream;
        calls.executablePath = executablePath;
        calls.allocateLarge = allocateLarge;
    }
    ~MemoryFiles() {
        platform::calls = m_system;
        s_current = nullptr;
        if (m_stream != nullptr)
            std::fclose(m_stream);
    }
    MemoryFiles(const MemoryFiles&) = delete;
    MemoryFiles& operator=(const MemoryFiles&) = delete;

    // `bytes` must stay alive.
    void put(const std::string& name, std::string_view bytes) { m_files[name] = bytes; }

    // Takes effect from the next call on, which is number 1.
    void plan(const FaultPlan& plan) {
        m_plan = plan;
        m_random = plan.shortCounts;
        m_calls = 0;
        m_failed = 0;
        m_delivered = 0;
    }

    // What the stream calls tell as the length of the file, in place of the true one.
    void tellLength(std::int64_t length) { m_toldLength = length; }
    void tellTrueLength() { m_toldLength = -1; }

    // Full path of the running program; empty for a failure of the call.
    void program(std::string path) { m_program = std::move(path); }

    std::uint32_t callCount() const { return m_calls; }
    std::uint32_t failedCalls() const { return m_failed; }
    std::size_t openCount() const { return m_open.size(); }
    // Bytes that readAt has given since plan().
    std::uint64_t delivered() const { return m_delivered; }

  private:
    static constexpr platform::FileHandle kFirstHandle = 1000;
    inline static MemoryFiles* s_current = nullptr;

    // Counts a call; false where it is to fail.
    bool passes(Call call) {
        ++m_calls;
        const bool fails =
            (m_plan.failingCall != 0 && (m_plan.failsForGood ? m_calls >= m_plan.failingCall
                                                             : m_calls == m_plan.failingCall)) ||
            (!m_plan.failing.empty() && m_plan.failing.contains(call));
        m_failed += fails;
        if (fails)
            platform::setLastError(5);
        return !fails;
    }

    std::size_t shortened(std::size_t size) {
        if (m_plan.shortCounts == 0 || size < 2)
            return size;
        m_random = m_random * 1664525u + 1013904223u;
        return 1 + (m_random >> 8) % size;
    }

    const std::string_view* find(const char* path) const {
        const std::string_view whole(path);
        const auto file = m_files.find(std::string(whole.substr(whole.find_last_of("/\\") + 1)));
        return file != m_files.end() ? &file->second : nullptr;
    }

    const std::string_view& opened(platform::FileHandle handle) const {
        const auto file = m_open.find(handle);
        if (file == m_open.end())
            misused("a handle that is not open");
        return *file->second;
    }

    static platform::FileHandle openForReading(const char* path) {
        MemoryFiles& self = *s_current;
        const std::string_view* file = self.find(path);
        if (!self.passes(Call::Open) || file == nullptr)
            return platform::kNoFile;
        self.m_open[kFirstHandle + ++self.m_opened] = file;
        return kFirstHandle + self.m_opened;
    }

    static std::ptrdiff_t readAt(platform::FileHandle handle, std::uint64_t offset, void* out,
                                 std::size_t size) {
        MemoryFiles& self = *s_current;
        const std::string_view file = self.opened(handle);
        if (!self.passes(Call::Read))
            return -1;
        if (offset >= file.size() || size == 0)
            return 0;
        const std::size_t left = file.size() - static_cast<std::size_t>(offset);
        const std::size_t count = self.shortened(size < left ? size : left);
        std::memcpy(out, file.data() + offset, count);
        self.m_delivered += count;
        return static_cast<std::ptrdiff_t>(count);
    }

    static std::int64_t fileSize(platform::FileHandle handle) {
        MemoryFiles& self = *s_current;
        const std::string_view file = self.opened(handle);
        return self.passes(Call::Size) ? static_cast<std::int64_t>(file.size()) : -1;
    }

    static void closeFile(platform::FileHandle handle) {
        s_current->opened(handle);
        s_current->m_open.erase(handle);
    }

    // One true stream stands for all: it is only handed back to the calls below.
    static std::FILE* openStream(const char* path) {
        MemoryFiles& self = *s_current;
        const std::string_view* file = self.find(path);
        if (!self.passes(Call::OpenStream) || file == nullptr)
            return nullptr;
        if (self.m_stream == nullptr)
            self.m_stream = std::tmpfile();
        self.m_streamed = *file;
        self.m_position = 0;
        return self.m_stream;
    }

    static bool seekStream(std::FILE* stream, std::int64_t offset, int origin) {
        MemoryFiles& self = *s_current;
        if (stream == nullptr || stream != self.m_stream)
            misused("a stream that was not opened");
        if (!self.passes(Call::Seek))
            return false;
        const auto end = static_cast<std::int64_t>(self.m_streamed.size());
        self.m_position = (origin == SEEK_END ? end : 0) + offset;
        return true;
    }

    static std::int64_t tellStream(std::FILE*) {
        MemoryFiles& self = *s_current;
        if (!self.passes(Call::Tell))
            return -1;
        return self.m_toldLength >= 0 ? self.m_toldLength : self.m_position;
    }

    static std::size_t readStream(void* out, std::size_t size, std::size_t count, std::FILE*) {
        MemoryFiles& self = *s_current;
        if (!self.passes(Call::ReadStream))
            return 0;
        std::size_t whole = 0;
        const auto end = static_cast<std::int64_t>(self.m_streamed.size());
        while (whole < count && self.m_position + static_cast<std::int64_t>(size) <= end) {
            std::memcpy(static_cast<char*>(out) + whole * size,
                        self.m_streamed.data() + self.m_position, size);
            self.m_position += static_cast<std::int64_t>(size);
            ++whole;
        }
        return whole;
    }

    static std::size_t executablePath(char* out, std::size_t size) {
        MemoryFiles& self = *s_current;
        if (!self.passes(Call::Program) || self.m_program.empty())
            return 0;
        const std::size_t length = self.m_program.size() < size ? self.m_program.size() : size - 1;
        std::memcpy(out, self.m_program.data(), length);
        out[length] = '\0';
        return length;
    }

    static void* allocateLarge(std::size_t size) {
        MemoryFiles& self = *s_current;
        return self.passes(Call::Large) ? self.m_system.allocateLarge(size) : nullptr;
    }

    platform::Calls m_system;
    FaultPlan m_plan;
    std::uint32_t m_random = 0;
    std::uint32_t m_calls = 0;
    std::uint32_t m_failed = 0;
    std::uint64_t m_delivered = 0;
    std::map<std::string, std::string_view> m_files;
    std::map<platform::FileHandle, const std::string_view*> m_open;
    platform::FileHandle m_opened = 0;
    std::FILE* m_stream = nullptr;
    std::string_view m_streamed;
    std::int64_t m_position = 0;
    std::int64_t m_toldLength = -1;
    std::string m_program = "/memory/host";
};

} // namespace fuzzing
