#include "serial/SerialText.h"

#include "frame/LaserError.h"

namespace devlaser {

std::string HexDump(std::span<const uint8_t> bytes) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  text.reserve(bytes.size() * 3);
  for (uint8_t b : bytes) {
    text += kDigits[b >> 4];
    text += kDigits[b & 0x0F];
    text += ' ';
  }
  return text;
}

namespace {
// The length of the UTF-8 sequence that starts at bytes[i], or 0 when none valid starts there.
size_t SequenceLength(std::span<const uint8_t> bytes, size_t i) {
  const uint8_t lead = bytes[i];
  size_t len = 0;
  uint32_t min = 0;
  uint32_t cp = 0;
  if (lead < 0x80) return 1;
  if ((lead & 0xE0) == 0xC0) {
    len = 2, min = 0x80, cp = lead & 0x1F;
  } else if ((lead & 0xF0) == 0xE0) {
    len = 3, min = 0x800, cp = lead & 0x0F;
  } else if ((lead & 0xF8) == 0xF0) {
    len = 4, min = 0x10000, cp = lead & 0x07;
  } else {
    return 0;
  }
  if (i + len > bytes.size()) return 0;
  for (size_t k = 1; k < len; ++k) {
    if ((bytes[i + k] & 0xC0) != 0x80) return 0;
    cp = (cp << 6) | (bytes[i + k] & 0x3F);
  }
  // Overlong forms, surrogates and code points beyond Unicode are not text.
  if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0;
  return len;
}
}  // namespace

std::string DecodeText(std::span<const uint8_t> bytes) {
  for (size_t i = 0; i < bytes.size();) {
    const size_t len = SequenceLength(bytes, i);
    if (len == 0) throw ELaserError("invalid text at byte " + std::to_string(i));
    i += len;
  }
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace devlaser
