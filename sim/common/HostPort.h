// "HOST:PORT" as the simulator programs take their listening addresses on the command line.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace lasersim {

// Splits `text` at its last colon into a non-empty host and a port of 0..65535. Without a colon the whole text is
// the host and the port is `defaultPort`; without a default a colon is required. False when the text is malformed.
bool SplitHostPort(const std::string& text, std::string& host, uint16_t& port,
                   std::optional<uint16_t> defaultPort = std::nullopt);

}  // namespace lasersim
