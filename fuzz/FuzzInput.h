// Splits a fuzz input into the values a target needs: small choices taken from its front, the rest as text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace fuzz {

class TFuzzInput {
 public:
  TFuzzInput(const uint8_t* data, size_t size) : FData(data), FSize(size) {}

  // The next byte, or 0 once the input is used up.
  uint8_t Byte() { return FPos < FSize ? FData[FPos++] : 0; }
  template <class T>
  T Value() {
    T v{};
    uint8_t raw[sizeof(T)] = {};
    for (auto& b : raw) b = Byte();
    std::memcpy(&v, raw, sizeof(T));
    return v;
  }
  // Up to `max` bytes as text.
  std::string_view Text(size_t max) {
    size_t n = std::min(max, FSize - FPos);
    std::string_view s(reinterpret_cast<const char*>(FData) + FPos, n);
    FPos += n;
    return s;
  }
  std::string_view Rest() { return Text(FSize - FPos); }
  bool Empty() const { return FPos >= FSize; }

 private:
  const uint8_t* FData;
  size_t FSize;
  size_t FPos = 0;
};

}  // namespace fuzz
