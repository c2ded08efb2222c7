#include "sim/raycus/RaycusSimText.h"

#include <chrono>
#include <cstdio>

#include "sim/common/PrintableBytes.h"

namespace lasersim {

std::string RaycusLogLine(const TRaycusEscEngine::TEntry& entry, const std::string& reply,
                          TRaycusEscEngine::Clock::time_point started) {
  const double seconds = std::chrono::duration<double>(entry.At - started).count();
  char time[32];
  std::snprintf(time, sizeof time, "%10.3f s", seconds);
  std::string hex;
  for (unsigned char c : entry.Bytes) {
    char digits[4];
    std::snprintf(digits, sizeof digits, "%02X ", c);
    hex += digits;
  }
  std::string line = std::string(time) + "  <- " + hex;
  if (entry.Junk) return line + " (junk, skipped)";
  return line + " -> " + (reply.empty() ? std::string("(no reply)") : PrintableBytes(reply));
}

}  // namespace lasersim
