// The message formatter with hostile format texts: any flags, widths and precisions, placeholders with and
// without arguments, arguments of the wrong kind. The first byte picks the arguments; the rest is the format.
#include <cstdint>
#include <limits>
#include <string>

#include "FuzzInput.h"
#include "frame/Format.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::TFuzzInput in(data, size);
  const uint8_t pick = in.Byte();
  const std::string fmt(in.Rest());
  const double dbl[] = {0.0,
                        -1.5,
                        1e308,
                        -std::numeric_limits<double>::infinity(),
                        std::numeric_limits<double>::quiet_NaN(),
                        std::numeric_limits<double>::denorm_min(),
                        123456789.987654321,
                        -0.0};
  const double d = dbl[pick & 7];
  const int64_t i = (pick & 8) ? std::numeric_limits<int64_t>::min() : -42;
  const uint64_t u = (pick & 16) ? std::numeric_limits<uint64_t>::max() : 7;
  const std::string_view s = (pick & 32) ? std::string_view("\0x%s%n", 7) : std::string_view("text");
  std::string out;
  switch (pick >> 6) {
    case 0:
      out = devlaser::Format(fmt);
      break;
    case 1:
      out = devlaser::Format(fmt, i);
      break;
    case 2:
      out = devlaser::Format(fmt, d, s, u);
      break;
    default:
      out = devlaser::Format(fmt, s, u, i, d, d, s, i, u);
      break;
  }
  // Widths and precisions are capped (at 1024), so every format byte yields a bounded amount of text.
  if (out.size() > (fmt.size() + 1) * 1400) __builtin_trap();
  return 0;
}
