// How a reader finds its data file: one key of one section of an ini file, and for some readers a
// trial whether the file can be opened.

#pragma once

#include <string>

#include "dw_util/pathRule.h"

struct ReaderSetting {
    const char* key;
    const char* defaultName;
    const char* emptyFailure;
};

inline constexpr ReaderSetting kClassesSetting = {
    "classes", "class.vd", "reader for classes can not find 'classes' setting or setting is empty"};
inline constexpr ReaderSetting kDynParamsSetting = {
    "dynparams", "data.vd", "vdreader can not find 'dynparams' setting or setting is empty"};
inline constexpr ReaderSetting kAlertsSetting = {
    "alerts", "alert.vd", "vdreader can not find 'alerts' setting or setting is empty"};
inline constexpr ReaderSetting kFutLimitsSetting = {
    "flimits", "flimit.vd", "vdreader can not find 'flimits' setting or setting is empty"};
inline constexpr ReaderSetting kFutPositionsSetting = {
    "fclipos", "fclipos.vd", "vdreader can not find 'fclipos' setting or setting is empty"};

// The configured name as it stands, or the default.  Raises the setting's failure if it is empty.
std::string configuredName(const char* iniFile, const char* section, const ReaderSetting& setting);

// Resolves `name` into `path` and opens the file there for a test.  Raises "alerts file " + path +
// " can not be opened".
void resolveAndTry(PathBuffer& path, const char* name);

// Puts the configured name into `file`, opens the resolved path for a test and then puts that into
// `file`.  Raises "alerts file " + path + " can not be opened", with `file` left at the configured
// name.
void configureFile(std::string& file, const char* iniFile, const char* section,
                   const ReaderSetting& setting);
