// The process's message logger.

#pragma once

#include <atomic>
#include <string>

#include "logs/SysLogger.h"

// Null until an event log is opened, and after shutdown_logs.
extern std::atomic<SysLogger*> sysLogger;

// Makes the logger for this file unless there is one; raises what its constructor raises.
void openSysLogger(const std::string& path);
