// laserctl's parameter records: any text read as the JSON record of --params over the default record, then the
// record written out as laserctl prints it, read into a fresh record and written again. The written record must
// read back without a warning and give the same text; a refused text must leave the record as it was.
#include <cstdint>
#include <cstdio>
#include <string>

#include "ParamsJson.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  static const std::string kDefaults = laserctl::ParamsToJson(devlaser::TLaserParams{});
  devlaser::TLaserParams params;
  int reports = 0;
  const bool read =
      laserctl::LoadParamsJsonText(text, "fuzz.json", params, [&](int, const std::string&) { ++reports; });
  const std::string first = laserctl::ParamsToJson(params);
  if (!read) {
    if (first != kDefaults || reports != 1) __builtin_trap();
    return 0;
  }

  devlaser::TLaserParams reloaded;
  std::string complaint;
  if (!laserctl::LoadParamsJsonText(first, "written.json", reloaded,
                                    [&](int, const std::string& msg) { complaint += msg + "\n"; }))
    __builtin_trap();
  const std::string second = laserctl::ParamsToJson(reloaded);
  if (!complaint.empty() || second != first) {
    std::fprintf(stderr, "unstable record:\n%s--- first\n%s\n--- second\n%s\n", complaint.c_str(), first.c_str(),
                 second.c_str());
    __builtin_trap();
  }
  return 0;
}
