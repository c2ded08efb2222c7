// The own-brand description file as the driver loads it: parsed JSON, the laser element read with its command
// templates, reply patterns and alarms, every template's frame built, and received bytes decoded with the alarm
// reply's pattern. The input is the description text, optionally followed by a NUL byte and the received bytes.
#include <cstdint>
#include <string>

#include "frame/LaserError.h"
#include "refhost/JsonObject.h"
#include "zorun/ZorunDescription.h"

namespace zorun = devlaser::zorun;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  const size_t nul = input.find('\0');
  const std::string text = input.substr(0, nul);
  zorun::TBytes received;
  if (nul != std::string::npos) received.assign(input.begin() + static_cast<std::ptrdiff_t>(nul) + 1, input.end());

  std::string error;
  auto root = refhost::ParseJson(text, error);
  if (!root) return 0;
  for (bool serial : {false, true}) {
    zorun::TZorunDescription desc;
    try {
      desc = zorun::ReadDescription(*root, "fuzz.json", 0, serial);
    } catch (const devlaser::ELaserError&) {
      continue;  // a refused file is an operator message, which is the point
    }
    // The loader only accepts templates that can produce their frames; with an unknown encoding every frame is
    // empty and the driver says so when it starts.
    for (const auto& [type, cmd] : desc.Commands) {
      if (desc.Encoding != zorun::TEncoding::Unknown && !zorun::TemplateProblem(cmd).empty()) __builtin_trap();
      for (double value : {0.0, 1.0, 50.5, -1.0, 1e12, static_cast<double>(cmd.FParamMax)})
        if (auto frame = zorun::BuildFrame(cmd, value); frame) zorun::HexDump(*frame);
    }
    auto alarm = desc.Replies.find(zorun::ctAlarmReply);
    if (alarm != desc.Replies.end())
      if (auto code = zorun::FindAlarmCode(alarm->second, received))
        for (const auto& [bit, a] : desc.Alarms)
          if (bit >= 0 && bit < 8 && (*code & (1u << bit))) (void)a.FAlarmDesc.size();
  }
  return 0;
}
