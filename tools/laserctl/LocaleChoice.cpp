#include "LocaleChoice.h"

#include <cstdlib>
#include <filesystem>
#include <string_view>
#include <vector>

#ifndef DEVLASER_SHARE_RELDIR
#define DEVLASER_SHARE_RELDIR "share/devlaser"
#endif

namespace laserctl {

bool EnvironmentAsksForChinese() {
  for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* value = std::getenv(name);
    if (value == nullptr || *value == '\0') continue;
    return std::string_view(value).starts_with("zh");
  }
  return false;
}

std::string ChooseLocaleFile(const std::string& given, const std::string& exeDir) {
  if (!given.empty()) return given;
  if (EnvironmentAsksForChinese()) return {};
  std::vector<std::string> candidates;
  if (!exeDir.empty()) candidates.push_back(exeDir + "/../" DEVLASER_SHARE_RELDIR "/locale/en.ini");
#ifdef DEVLASER_SOURCE_DIR
  candidates.push_back(DEVLASER_SOURCE_DIR "/locale/en.ini");  // a build run where it was built
#endif
  for (const auto& candidate : candidates) {
    std::error_code ec;
    if (std::filesystem::is_regular_file(candidate, ec)) return candidate;
  }
  return {};
}

}  // namespace laserctl
