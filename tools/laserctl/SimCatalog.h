// The laser simulators laserctl knows, by laser class and link: the one list to extend when a simulator is added.
// --list-models reads it to say which lasers can be tried without hardware.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace laserctl {

struct TSimulatorEntry {
  std::string_view ClassName;  // the plug-in's laser class, "TIPGYLR2Laser"
  std::string_view Link;       // "serial", "tcp", "udp", "ethercat", as the plug-in names its links
  std::string_view Program;    // the stand-alone simulator program
};

std::span<const TSimulatorEntry> Simulators();

// The simulators of a class, as "ipgsim (serial, tcp)"; empty when there is none.
std::vector<std::string> SimulatorsFor(std::string_view className);

}  // namespace laserctl
