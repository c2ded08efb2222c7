// The library's access to the host's application object, handed over when the library is loaded.
#pragma once

#include <string>

#include "host/AppSystem.h"

namespace devlaser {

// The host's application object, or null before the library is loaded (then messages go nowhere).
nchost::TAppSystem* Host();
void SetHost(nchost::TAppSystem* app);

// The category of the library's log lines.
inline constexpr const char* kLaserCategory = "Laser";

// Operator message and log line through the host, when there is one.
void ShowMsg(const std::string& msg, int msgType, uint32_t color = 0);
void LogMsg(const std::string& msg, int msgType, const std::string& category = kLaserCategory);
// Names the calling thread through the host.
void NameThread(const std::string& name);

}  // namespace devlaser
