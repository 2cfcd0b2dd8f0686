// Fuzz target of the path rule: the program's path up to a zero byte, and behind it the configured
// name, against a second form of the rule on strings of any length.

#include <cstring>
#include <string>

#include "dw_util/pathRule.h"
#include "platform/process.h"
#include "support/input.h"

namespace {

using platform::pathForm;

bool isAbsolute(const std::string& name) {
    if (pathForm.drives && name.size() > 1 && name[1] == ':')
        return true;
    std::size_t separators = 0;
    while (separators < name.size() && pathForm.isSeparator(name[separators]))
        ++separators;
    return separators >= static_cast<std::size_t>(pathForm.absolutePrefix);
}

std::string fromDots(std::string folder, const std::string& name) {
    for (std::size_t dots = name.find_first_not_of('.') == std::string::npos
                                ? name.size()
                                : name.find_first_not_of('.');
         dots > 0; --dots) {
        const std::size_t last = folder.rfind(pathForm.separator);
        folder.resize(last == std::string::npos ? 0 : last);
    }
    std::size_t rest = 0;
    while (rest < name.size() && !pathForm.isSeparator(name[rest]))
        ++rest;
    return folder + name.substr(rest);
}

std::string expected(const std::string& program, const std::string& name) {
    std::string path;
    if (name.empty() || isAbsolute(name))
        path = name;
    else if (name[0] == '.')
        path = fromDots(program, name);
    else
        path = program.substr(0, program.rfind(pathForm.separator) + 1) + name;
    for (char& c : path)
        if (pathForm.isSeparator(c))
            c = pathForm.separator;
    return path.substr(0, kPathSize - 1);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static fuzzing::MemoryFiles files;
    const std::string all(reinterpret_cast<const char*>(data), size);
    const std::size_t end = all.find('\0');
    if (end == std::string::npos)
        return 0;
    const std::string program = all.substr(0, end).substr(0, kPathSize - 1);
    const std::string name = all.c_str() + end + 1;
    files.program(program);

    PathBuffer path;
    std::memset(path, 'x', sizeof path);
    FUZZ_CHECK(resolvePath(path, name.c_str()) == 0);
    FUZZ_CHECK(std::memchr(path, 0, sizeof path) != nullptr);
    FUZZ_CHECK(expected(program, name) == path);

    std::memset(path, 'x', sizeof path);
    FUZZ_CHECK(resolvePath(path, nullptr) == 0 && path[0] == '\0');
    return 0;
}
