// How the serial lasers show their traffic in the log: hex dumps of raw bytes and received text.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace devlaser {

// Each byte as two upper-case hexadecimal digits and a blank: {0x1B, 0x4F} gives "1B 4F ".
std::string HexDump(std::span<const uint8_t> bytes);

// The bytes as UTF-8 text, checked: a byte sequence that is no valid UTF-8 throws ELaserError naming the offset,
// so that line noise is never logged as if the laser had said it.
std::string DecodeText(std::span<const uint8_t> bytes);

}  // namespace devlaser
