// Locale files: any text loaded as an INI locale resource, then every key it defined read back, and each text used
// as a format the way messages use their locale texts. A refused file must leave the texts loaded before.
#include <cstdint>
#include <string>

#include "frame/Format.h"
#include "refhost/IniLocaleResource.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  refhost::TIniLocaleResource locale;
  std::string error;
  if (!locale.LoadText("[Device_Strs]\nSBase=kept\n", "base.ini", error)) __builtin_trap();
  const size_t before = locale.Count();
  if (!locale.LoadText(text, "fuzz.ini", error)) {
    std::string kept;
    locale.ReadStr("Device_Strs", "SBase", kept);
    if (locale.Count() != before || kept != "kept" || error.empty()) __builtin_trap();
    return 0;
  }
  // Look up every "key=" of the text, in the section above it, and format with its value.
  std::string section;
  size_t pos = 0;
  while (pos < text.size()) {
    size_t end = text.find('\n', pos);
    if (end == std::string::npos) end = text.size();
    const std::string line = text.substr(pos, end - pos);
    pos = end + 1;
    if (!line.empty() && line.front() == '[' && line.find(']') != std::string::npos) {
      section = line.substr(1, line.find(']') - 1);
    } else if (auto eq = line.find('='); eq != std::string::npos) {
      std::string value;
      locale.ReadStr(section, line.substr(0, eq), value);
      devlaser::Format(value, 3.5, "x", 42);
    }
  }
  return 0;
}
