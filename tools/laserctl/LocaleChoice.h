// Which operator-message texts laserctl gives the plug-in: --locale when given; otherwise the shipped English
// texts unless the environment asks for Chinese, which are the plug-in's built-in texts.
#pragma once

#include <string>

namespace laserctl {

// True when the first of LC_ALL, LC_MESSAGES and LANG that is set names a Chinese locale ("zh_CN.UTF-8").
bool EnvironmentAsksForChinese();

// The locale file to load: `given` when not empty; the shipped en.ini (installed beside laserctl's prefix, or in
// the source tree of a build) unless the environment asks for Chinese; empty for the built-in texts.
std::string ChooseLocaleFile(const std::string& given, const std::string& exeDir);

}  // namespace laserctl
