// From an ini file's key to the path of a data file.

#include "readerSettings.h"

#include <cstring>

#include "libn/Ini.h"
#include "platform/file.h"
#include "vdreader/raise.h"

std::string configuredName(const char* iniFile, const char* section, const ReaderSetting& setting) {
    const libn::Ini ini(iniFile);
    std::string name;
    ini.getString(section, std::strlen(section), setting.key, std::strlen(setting.key),
                  setting.defaultName, std::strlen(setting.defaultName), name);
    if (name.empty())
        dwraise_ex(__FILE__, __LINE__, "%s", setting.emptyFailure);
    return name;
}

void resolveAndTry(PathBuffer& path, const char* name) {
    resolvePath(path, name);
    // Deliberate: "alerts" whatever the reader is.  Callers of all four readers compare the text.
    if (!platform::ReadFile(path).isOpen())
        dwraise_ex(__FILE__, __LINE__, "alerts file %s can not be opened", path);
}

void configureFile(std::string& file, const char* iniFile, const char* section,
                   const ReaderSetting& setting) {
    // Deliberate: the configured name stays behind when the open fails, so that a later walk
    // reports the name that the operator wrote.
    file = configuredName(iniFile, section, setting);
    PathBuffer path = {};
    resolveAndTry(path, file.c_str());
    file = path;
}
