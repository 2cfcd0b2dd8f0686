// Names of source files in texts.

#pragma once

// What stands behind the last \ or : of `file`; all of it where neither occurs.  The characters are
// the same on every system: these are names, not paths.  Null counts as empty.
inline const char* sourceName(const char* file) noexcept {
    if (file == nullptr)
        return "";
    const char* name = file;
    for (const char* c = file; *c != '\0'; ++c)
        if (*c == '\\' || *c == ':')
            name = c + 1;
    return name;
}
