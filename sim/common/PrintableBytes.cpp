#include "sim/common/PrintableBytes.h"

namespace lasersim {

std::string PrintableBytes(const std::string& bytes) {
  static const char kHex[] = "0123456789ABCDEF";
  std::string text;
  for (unsigned char c : bytes) {
    if (c == '\r') {
      text += "\\r";
    } else if (c < 0x20 || c >= 0x7F) {
      text += "\\x";
      text += kHex[c >> 4];
      text += kHex[c & 15];
    } else {
      text += static_cast<char>(c);
    }
  }
  return text;
}

}  // namespace lasersim
