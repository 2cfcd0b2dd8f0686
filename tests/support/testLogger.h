// Message loggers for tests: how their worker starts, and records for them.

#pragma once

#include <atomic>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>
#include <thread>

#include "logs/SysLogger.h"
#include "platform/threadBlock.h"
#include "support/waitWhile.h"

// Stands in for the start of a worker: there is none, and records wait for a drain.
inline std::thread startNoWorker(SysLogger&) {
    return {};
}

// A logger whose worker begins when the test says so, which is when the logger is complete: it then
// finds its flag set.
class GatedLogger {
  public:
    GatedLogger(const std::string& path, std::uint32_t scheme) {
        s_open = false;
        s_started = false;
        m_logger = std::make_unique<SysLogger>(path, scheme, [](SysLogger& logger) {
            return std::thread([&logger] {
                platform::threadBlock(); // with what each thread carries, which takes memory
                s_started = true;
                waitWhile(s_open, false);
                logger.workerLoop();
            });
        });
        waitWhile(s_started, false);
    }
    ~GatedLogger() { openGate(); }
    GatedLogger(const GatedLogger&) = delete;
    GatedLogger& operator=(const GatedLogger&) = delete;

    void openGate() { s_open = true; }
    // Opens the gate, has the worker write what is queued, and waits for that.
    void finish() {
        openGate();
        m_logger.reset();
    }

    SysLogger& operator*() const { return *m_logger; }
    SysLogger* operator->() const { return m_logger.get(); }

  private:
    static inline std::atomic<bool> s_open{false};
    static inline std::atomic<bool> s_started{false};
    std::unique_ptr<SysLogger> m_logger;
};

// A record with parameters of type text.
inline SysLogRecord* textRecord(MsgLevel level, std::initializer_list<const char*> texts) {
    SysLogRecord* record = newSysLogRecord(static_cast<std::uint8_t>(level), 1);
    for (const char* text : texts)
        addStringParam(*record, text);
    return record;
}
inline SysLogRecord* infoRecord(const std::string& text) {
    return textRecord(MsgLevel::Info, {text.c_str()});
}

// Makes the parameter one of a number's type.
template <class Number>
void setNumber(SysLogParam& param, SysLogParamType type, Number number) {
    std::memcpy(param.value, &number, sizeof number);
    param.type = type;
}

// An info record with a number as its one parameter.
template <class Number>
SysLogRecord* numberRecord(SysLogParamType type, Number number) {
    SysLogRecord* record = newSysLogRecord(static_cast<std::uint8_t>(MsgLevel::Info), 1);
    setNumber(record->inlineParams[0], type, number);
    record->inlineCount = 1;
    return record;
}
