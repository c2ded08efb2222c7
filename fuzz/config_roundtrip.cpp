// Configuration files as JSON and XML: any text loaded into the laser's configuration tree, then saved, loaded into
// a fresh tree and saved again. The two saved texts must be equal: what the host writes reads back to the same
// configuration. The first byte picks the form the text is read in; the round trip runs in both forms.
#include <cstdint>
#include <cstdio>
#include <string>

#include "frame/LaserConfig.h"
#include "refhost/ConfigStore.h"

namespace {

using TSave = bool (*)(const nchost::TXmlSubConfig&, std::string&, const refhost::TConfigReport&);
using TLoad = bool (*)(nchost::TXmlSubConfig&, const std::string&, const std::string&, const refhost::TConfigReport&);

void RoundTrip(const devlaser::TLaserConfig& source, TSave save, TLoad load) {
  bool saveWarned = false;
  auto onSave = [&](int, const std::string&) { saveWarned = true; };
  std::string first;
  if (!save(source, first, onSave)) return;
  // A value the form cannot hold (an infinite double in JSON) is reported and left out: no stable text then.
  if (saveWarned) return;
  devlaser::TLaserConfig reloaded;
  bool loadComplained = false;
  if (!load(reloaded, first, "saved", [&](int, const std::string&) { loadComplained = true; })) __builtin_trap();
  std::string second;
  save(reloaded, second, {});
  if (loadComplained || second != first) {
    std::fprintf(stderr, "unstable round trip:\n--- first\n%s\n--- second\n%s\n", first.c_str(), second.c_str());
    __builtin_trap();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  devlaser::TLaserConfig config;
  const refhost::TConfigReport quiet = [](int, const std::string&) {};
  if (data[0] & 1)
    refhost::LoadXmlText(config, text, "fuzz.xml", quiet);
  else
    refhost::LoadJsonText(config, text, "fuzz.json", quiet);
  RoundTrip(config, refhost::ToJsonText, refhost::LoadJsonText);
  RoundTrip(config, refhost::ToXmlText, refhost::LoadXmlText);
  return 0;
}
