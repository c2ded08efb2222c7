// One command for a serial laser: up to 28 bytes, written to the line as they stand. A plain value, copied into
// and out of the command queue, so that queuing a command never allocates beyond the queue's own storage.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace devlaser {

struct TCommCmd {
  static constexpr size_t kMaxLen = 28;

  int32_t Len = 0;  // 0: no command
  std::array<uint8_t, kMaxLen> Data{};

  // Takes 1 to 28 bytes; anything else leaves the record as it is and returns false.
  bool Assign(std::span<const uint8_t> bytes);
  std::span<const uint8_t> Bytes() const { return {Data.data(), static_cast<size_t>(Len)}; }
  std::string ToString() const { return {reinterpret_cast<const char*>(Data.data()), static_cast<size_t>(Len)}; }
};

}  // namespace devlaser
