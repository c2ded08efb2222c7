#include "serial/CommCmd.h"

#include <algorithm>

namespace devlaser {

bool TCommCmd::Assign(std::span<const uint8_t> bytes) {
  if (bytes.empty() || bytes.size() > kMaxLen) return false;
  std::copy(bytes.begin(), bytes.end(), Data.begin());
  Len = static_cast<int32_t>(bytes.size());
  return true;
}

}  // namespace devlaser
