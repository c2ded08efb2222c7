#include "PluginInfo.h"

#include <iomanip>
#include <iostream>
#include <nlohmann/json.hpp>

#include "PluginLibrary.h"
#include "SimCatalog.h"
#include "host/HostDefs.h"
#include "refhost/RefApp.h"

#ifndef DEVLASER_VERSION
#define DEVLASER_VERSION "unknown"
#endif

namespace laserctl {
namespace {

std::string Joined(const std::vector<std::string>& items, const char* separator) {
  std::string text;
  for (const auto& item : items) text += (text.empty() ? "" : separator) + item;
  return text;
}

std::string SubTypesText(const std::vector<int>& subTypes) {
  std::vector<std::string> texts;
  for (int s : subTypes) texts.push_back(std::to_string(s));
  return Joined(texts, ",");
}

void PrintModels(const std::vector<devlaser::TLaserRegistrationInfo>& registrations, bool json) {
  if (json) {
    for (const auto& r : registrations) {
      const auto simulators = SimulatorsFor(r.ClassName);
      nlohmann::ordered_json line = {{"model", r.ModelKey},
                                     {"family", r.Family},
                                     {"subTypes", r.SubTypes},
                                     {"class", r.ClassName},
                                     {"links", r.Links},
                                     {"protocol", r.OwnProtocol ? "own" : "hard-wired"},
                                     {"simulator", !simulators.empty()},
                                     {"simulators", simulators}};
      std::cout << line.dump() << '\n';
    }
    return;
  }
  std::cout << std::left << std::setw(10) << "MODEL" << std::setw(12) << "FAMILY" << std::setw(10) << "SUB-TYPES"
            << std::setw(22) << "CLASS" << std::setw(12) << "DRIVEN AS" << std::setw(18) << "LINKS"
            << "SIMULATOR\n";
  for (const auto& r : registrations) {
    const auto simulators = SimulatorsFor(r.ClassName);
    std::cout << std::left << std::setw(10) << (r.ModelKey.empty() ? "-" : r.ModelKey) << std::setw(12) << r.Family
              << std::setw(10) << SubTypesText(r.SubTypes) << std::setw(22) << r.ClassName << std::setw(12)
              << (r.OwnProtocol ? "protocol" : "hard-wired") << std::setw(18) << Joined(r.Links, ",")
              << (simulators.empty() ? "-" : Joined(simulators, "; ")) << '\n';
  }
  std::cout << registrations.size() << " registrations. A configuration's Model selects the family by its key "
            << "(the first key that contains it, case counts); LaserSubType selects the class.\n";
}

}  // namespace

int RunPluginInfo(const TOptions& options) {
  std::string error;
  const std::string path = TPluginLibrary::Locate(options.LibFile, refhost::TRefApp::ExecutableDir(), error);
  std::unique_ptr<TPluginLibrary> plugin = path.empty() ? nullptr : TPluginLibrary::Open(path, error);
  if (options.Version) {
    const char* pluginVersion = plugin && plugin->Query() ? plugin->Query()->Version : "unknown";
    if (options.Json) {
      nlohmann::ordered_json line = {{"laserctl", DEVLASER_VERSION},
                                     {"hostInterface", nchost::kHostInterfaceVersion},
                                     {"plugin", plugin ? path : ""},
                                     {"pluginVersion", plugin ? pluginVersion : ""}};
      std::cout << line.dump() << '\n';
    } else {
      std::cout << "laserctl " << DEVLASER_VERSION << "\nhost interface version " << nchost::kHostInterfaceVersion
                << '\n';
      if (plugin) std::cout << "plug-in " << path << " version " << pluginVersion << '\n';
    }
    if (!plugin) std::cerr << "laserctl: " << error << '\n';
    return plugin ? kExitOk : kExitCommandFailed;
  }
  if (!plugin || plugin->Query() == nullptr) {
    std::cerr << "laserctl: " << (plugin ? path + " does not tell its laser models (too old a plug-in)" : error)
              << '\n';
    return kExitSetupFailed;
  }
  PrintModels(plugin->Query()->Registrations(), options.Json);
  return kExitOk;
}

}  // namespace laserctl
