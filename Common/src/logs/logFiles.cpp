// Opening and closing of the logs.

#include "vdreader/logfiles.h"

#include <boost/filesystem.hpp>

#include <iostream>
#include <memory>
#include <mutex>

#include "dw_util/cutCopy.h"
#include "dw_util/pathRule.h"
#include "libn/Ini.h"
#include "libnEx/FReadLock.h"
#include "logs/Events.h"
#include "logs/logger.h"
#include "platform/lasting.h"
#include "platform/process.h"
#include "vdreader/log.h"

constinit std::atomic<SysLogger*> sysLogger{nullptr};

namespace {

constinit std::atomic<bool> forwardsToConsole{false};

// What the two kinds of log that an ini file configures differ in.
struct LogSettings {
    const char* key;
    const char* file;
};
constexpr LogSettings kEventSettings = {"EventsLogFileName", "events.log"};
constexpr LogSettings kErrorSettings = {"ErrorsLogFileName", "errors.log"};

bool isGiven(const char* text) {
    return text != nullptr && *text != '\0';
}

bool isConfiguredSeparator(char c) {
    return c == '\\' || platform::pathForm.isSeparator(c);
}

// A name of ours in the system's form.
std::string systemForm(std::string name) {
    for (char& c : name)
        if (isConfiguredSeparator(c))
            c = platform::pathForm.separator;
    return name;
}

std::string iniFileOf(const char* iniPath) {
    if (isGiven(iniPath))
        return iniPath;
    return boost::filesystem::absolute(systemForm(".\\sarn.ini")).string();
}

void enterProgramFolder() {
    char program[261] = {};
    platform::calls.executablePath(program, sizeof program);
    const std::string folder = boost::filesystem::path(program).parent_path().string();
    platform::calls.setCurrentFolder(folder.c_str());
}

// The configured file: a bare name stands in the configured folder.
std::string configuredFile(const libn::Ini& ini, const char* key, const LogSettings& settings) {
    std::string file = ini.getValue("Files", isGiven(key) ? key : settings.key);
    if (file.empty())
        file = settings.file;
    for (const char c : file)
        if (isConfiguredSeparator(c))
            return file;
    std::string folder = ini.getValue("Files", "LogFilesFolderName");
    if (folder.empty())
        folder = ".\\";
    if (!isConfiguredSeparator(folder.back()))
        folder += '\\';
    return folder + file;
}

// Each opens its log, under full paths.
void openErrorLog(const char* file, const char* rotationPath) {
    if (forwardsToConsole)
        Events<ErrorsTlsPtr>::instance().linkStream(std::cerr);
    Events<ErrorsTlsPtr>::instance().setThreadFile(file, rotationPath);
}

void openEventLog(const char* file, const char* rotationPath) {
    if (forwardsToConsole)
        Events<EventsTlsPtr>::instance().linkStream(std::cout);
    Events<EventsTlsPtr>::instance().setThreadFile(file, rotationPath);
    // The name that the thread's file got.
    char name[EVENTS::kNameSize];
    copyCut(name, file);
    openSysLogger(name);
}

void openConfigured(const std::string& iniFile, const char* key, const LogSettings& settings,
                    void (*open)(const char* file, const char* rotationPath), const char* mark) {
    // Deliberate: made and never locked.  A server that writes its ini file is not waited for.
    const libn::FReadLock readLock(iniFile.c_str());
    const libn::Ini ini(iniFile);
    const std::string configured = configuredFile(ini, key, settings);
    if (iniFile.empty() || configured.empty())
        return;
    // Deliberate: a relative ini path was read as it stands, and is resolved for rotation alone.
    // Hosts keep the settings of rotation beside their program.
    PathBuffer rotationPath = {};
    PathBuffer file = {};
    resolvePath(rotationPath, iniFile.c_str());
    resolvePath(file, configured.c_str());
    open(file, rotationPath);
    if (mark != nullptr)
        util_set_mark(mark);
}

} // namespace

void openSysLogger(const std::string& path) {
    static const platform::Lasting<std::recursive_mutex> lock;
    const std::lock_guard guard(lock.get());
    // Deliberate: the first file stays.  Components of one process name their own event logs, and
    // all of them end up in the one of the host.
    if (sysLogger.load() == nullptr)
        sysLogger.store(new SysLogger(path, 1));
}

extern "C" {

void init_eventlog(const char* key, const char* mark, const char* iniPath) {
    const std::string iniFile = iniFileOf(iniPath);
    // Deliberate: the current folder moves.  Hosts are started from anywhere and name their files
    // relative to their program.
    enterProgramFolder();
    openConfigured(iniFile, key, kEventSettings, openEventLog, mark);
}

void init_errorlog(const char* key, const char* mark, const char* iniPath) {
    openConfigured(iniFileOf(iniPath), key, kErrorSettings, openErrorLog, mark);
}

void init_logs(const char* mark) {
    init_errorlog(nullptr, mark, nullptr);
    init_eventlog(nullptr, mark, nullptr);
}

void init_dealliblog(void) {}

int32_t util_init(const char* eventFile, const char* errorFile, const char* mark,
                  const char* iniPath) {
    PathBuffer rotationPath = {};
    resolvePath(rotationPath, iniPath);
    PathBuffer file = {};
    if (isGiven(errorFile)) {
        resolvePath(file, errorFile);
        openErrorLog(file, rotationPath);
    }
    if (isGiven(eventFile)) {
        resolvePath(file, eventFile);
        openEventLog(file, rotationPath);
    }
    if (mark != nullptr)
        util_set_mark(mark);
    return 0;
}

void netutil_init(void) {
    PathBuffer file = {};
    resolvePath(file, "stats\\netevent.log");
    Events<NetEventsTlsPtr>::instance().setThreadFile(file, nullptr);
}

void shutdown_logs(void) {
    const std::unique_ptr<SysLogger> logger(sysLogger.exchange(nullptr));
    // Also where the worker has ended early.
    if (logger != nullptr)
        logger->drain();
}

int32_t EnableForwardLogToConsole(void) {
    return forwardsToConsole.exchange(true) ? 1 : 0;
}

} // extern "C"
