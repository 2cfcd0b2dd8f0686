// The list of what is mapped, out of /proc/self/maps.

#include <elf.h>
#include <fcntl.h>
#include <unistd.h>
#include <cstring>

#include "coreWork.h"

namespace platform::core {

namespace {

// Walks a line of text without the run-time's number functions, which look at locales.
class Scanner {
  public:
    explicit Scanner(const char* text) : m_at(text) {}

    std::uint64_t hexadecimal() {
        std::uint64_t value = 0;
        for (;; ++m_at) {
            if (*m_at >= '0' && *m_at <= '9')
                value = value * 16 + static_cast<std::uint64_t>(*m_at - '0');
            else if (*m_at >= 'a' && *m_at <= 'f')
                value = value * 16 + static_cast<std::uint64_t>(*m_at - 'a' + 10);
            else
                return value;
        }
    }
    void skip(std::size_t count) {
        for (; count != 0 && *m_at != '\0'; --count)
            ++m_at;
    }
    void skipWord() {
        while (*m_at != '\0' && *m_at != ' ')
            ++m_at;
    }
    void skipBlanks() {
        while (*m_at == ' ')
            ++m_at;
    }
    char current() const { return *m_at; }
    const char* rest() const { return m_at; }

  private:
    const char* m_at;
};

// Consecutive maps of one file share its name.
bool keepName(Work& work, Map& map, const char* name) {
    if (work.mapCount != 0) {
        const std::uint32_t former = work.maps[work.mapCount - 1].name;
        if (std::strcmp(work.names + former, name) == 0) {
            map.name = former;
            return true;
        }
    }
    const std::size_t size = std::strlen(name) + 1;
    if (size > kNamesSize - work.namesUsed)
        return false;
    std::memcpy(work.names + work.namesUsed, name, size);
    map.name = static_cast<std::uint32_t>(work.namesUsed);
    work.namesUsed += size;
    return true;
}

// "begin-end rwxp offset device inode name"
void takeLine(Work& work, const char* line) {
    if (work.mapCount == kMostMaps)
        return;
    Scanner scanner(line);
    Map map = {};
    map.begin = scanner.hexadecimal();
    scanner.skip(1);
    map.end = scanner.hexadecimal();
    scanner.skip(1);
    map.flags |= scanner.current() == 'r' ? PF_R : 0;
    scanner.skip(1);
    map.flags |= scanner.current() == 'w' ? PF_W : 0;
    scanner.skip(1);
    map.flags |= scanner.current() == 'x' ? PF_X : 0;
    scanner.skipWord();
    scanner.skipBlanks();
    map.offset = scanner.hexadecimal();
    scanner.skipBlanks();
    scanner.skipWord();
    scanner.skipBlanks();
    map.hasFile = scanner.current() != '0';
    scanner.skipWord();
    scanner.skipBlanks();
    if (keepName(work, map, scanner.rest()))
        work.maps[work.mapCount++] = map;
}

} // namespace

void readMaps(Work& work) noexcept {
    const int file = ::open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return;
    std::size_t kept = 0;
    for (;;) {
        const ssize_t count = ::read(file, work.text + kept, sizeof work.text - kept);
        if (count <= 0)
            break;
        char* at = work.text;
        char* const end = work.text + kept + count;
        while (auto* feed =
                   static_cast<char*>(std::memchr(at, '\n', static_cast<std::size_t>(end - at)))) {
            *feed = '\0';
            takeLine(work, at);
            at = feed + 1;
        }
        kept = static_cast<std::size_t>(end - at);
        if (kept == sizeof work.text)
            kept = 0; // no line is that long
        std::memmove(work.text, at, kept);
    }
    ::close(file);
}

const Map* mapAt(const Work& work, std::uint64_t address) noexcept {
    std::size_t low = 0;
    std::size_t high = work.mapCount;
    while (low < high) {
        const std::size_t middle = (low + high) / 2;
        const Map& map = work.maps[middle];
        if (address < map.begin)
            high = middle;
        else if (address >= map.end)
            low = middle + 1;
        else
            return &map;
    }
    return nullptr;
}

} // namespace platform::core
