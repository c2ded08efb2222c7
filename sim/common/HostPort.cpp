#include "sim/common/HostPort.h"

#include <exception>

namespace lasersim {

bool SplitHostPort(const std::string& text, std::string& host, uint16_t& port, std::optional<uint16_t> defaultPort) {
  const auto colon = text.rfind(':');
  host = text.substr(0, colon);
  if (colon == std::string::npos) {
    if (!defaultPort) return false;
    port = *defaultPort;
    return !host.empty();
  }
  try {
    size_t used = 0;
    const unsigned long value = std::stoul(text.substr(colon + 1), &used);
    if (used != text.size() - colon - 1 || value > 65535) return false;
    port = static_cast<uint16_t>(value);
  } catch (const std::exception&) {
    return false;
  }
  return !host.empty();
}

}  // namespace lasersim
