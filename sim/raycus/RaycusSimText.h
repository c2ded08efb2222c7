// How the Raycus simulator shows what it received: one line per command or junk, with the time since it started.
#pragma once

#include <string>

#include "sim/raycus/RaycusEscEngine.h"

namespace lasersim {

// "   12.345 s  <- 1B 43 50 26 0D  -> TS\r" (the reply as printable text, "(no reply)" when none; junk is marked).
std::string RaycusLogLine(const TRaycusEscEngine::TEntry& entry, const std::string& reply,
                          TRaycusEscEngine::Clock::time_point started);

}  // namespace lasersim
