// Where laserctl's messages and log lines go: standard error, and with --log-file also a file, every line stamped
// with the wall-clock time; debug traces only with --debug.
#pragma once

#include <memory>
#include <string>

#include "refhost/MessageSink.h"

namespace laserctl {

// Null, with `error`, when the log file cannot be opened.
std::shared_ptr<refhost::TMessageSink> MakeLaserctlSink(bool json, bool traces, const std::string& logFile,
                                                        std::string& error);

// "2026-11-23 22:36:01.123": local time to the millisecond.
std::string WallClockStamp();

}  // namespace laserctl
