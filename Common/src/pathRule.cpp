// The path rule.  All that differs between systems is in platform::pathForm.

#include "dw_util/pathRule.h"

#include <cstring>

#include "platform/process.h"

namespace {

using platform::pathForm;

// Text of bounded length, always terminated; what does not fit is dropped.
class PathText {
  public:
    void add(const char* text, std::size_t length) {
        const std::size_t kept = length < kSize - m_length ? length : kSize - 1 - m_length;
        std::memcpy(m_text + m_length, text, kept);
        m_length += kept;
    }
    void add(const char* text) { add(text, std::strlen(text)); }

    // Cuts at `size` and gives every separator the system's own form.
    void moveTo(char* out, std::size_t size) const {
        if (size == 0)
            return;
        const std::size_t length = m_length < size ? m_length : size - 1;
        for (std::size_t i = 0; i < length; ++i)
            out[i] = pathForm.isSeparator(m_text[i]) ? pathForm.separator : m_text[i];
        out[length] = '\0';
    }

  private:
    static constexpr std::size_t kSize = 512;
    char m_text[kSize];
    std::size_t m_length = 0;
};

bool isAbsolute(const char* name) {
    if (pathForm.drives && name[0] != '\0' && name[1] == ':')
        return true;
    for (int i = 0; i < pathForm.absolutePrefix; ++i)
        if (!pathForm.isSeparator(name[i]))
            return false;
    return true;
}

// Length of `path` in front of its last separator below `length`; 0 where there is none.
std::size_t folderLength(const char* path, std::size_t length) {
    while (length > 0 && path[length - 1] != pathForm.separator)
        --length;
    return length > 0 ? length - 1 : 0;
}

void addFromDots(PathText& to, const char* program, std::size_t length, const char* name) {
    // The first dot drops the program's own name, each further dot one folder more.
    const char* at = name;
    while (*at == '.' && length > 0) {
        length = folderLength(program, length);
        ++at;
    }
    to.add(program, length);
    while (*at != '\0' && !pathForm.isSeparator(*at))
        ++at;
    to.add(at);
}

void resolve(PathText& to, const char* name) {
    if (isAbsolute(name)) {
        to.add(name);
        return;
    }
    PathBuffer program = {};
    const std::size_t length = platform::calls.executablePath(program, sizeof program);
    if (name[0] == '.') {
        addFromDots(to, program, length, name);
    } else {
        const std::size_t folder = folderLength(program, length);
        to.add(program, program[folder] == pathForm.separator ? folder + 1 : 0);
        to.add(name);
    }
}

} // namespace

int resolvePath(char* out, std::size_t size, const char* name) noexcept {
    try {
        PathText text;
        if (name != nullptr && name[0] != '\0')
            resolve(text, name);
        text.moveTo(out, size);
        return 0;
    } catch (...) {
        out[0] = '\0';
        return 1;
    }
}
