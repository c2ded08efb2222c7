#include "SimCatalog.h"

#include <algorithm>

namespace laserctl {

std::span<const TSimulatorEntry> Simulators() {
  static constexpr TSimulatorEntry kSimulators[] = {
      {"TIPG500Laser", "serial", "ipgsim"},
      {"TIPG500Laser", "tcp", "ipgsim"},
      {"TIPGYLR2Laser", "serial", "ipgsim"},
      {"TIPGYLR2Laser", "tcp", "ipgsim"},
  };
  return kSimulators;
}

std::vector<std::string> SimulatorsFor(std::string_view className) {
  std::vector<std::pair<std::string, std::string>> found;  // program, its links
  for (const auto& entry : Simulators()) {
    if (entry.ClassName != className) continue;
    auto program = std::find_if(found.begin(), found.end(), [&](const auto& f) { return f.first == entry.Program; });
    if (program == found.end())
      found.emplace_back(std::string(entry.Program), std::string(entry.Link));
    else
      program->second += ", " + std::string(entry.Link);
  }
  std::vector<std::string> texts;
  for (const auto& [program, links] : found) texts.push_back(program + " (" + links + ")");
  return texts;
}

}  // namespace laserctl
