#include "ConfigFile.h"

#include <algorithm>
#include <cctype>
#include <filesystem>

#include "host/HostDefs.h"
#include "refhost/FileText.h"

namespace laserctl {

TConfigFormat DetectConfigFormat(const std::string& path, const std::string& content) {
  size_t first = 0;
  if (content.starts_with("\xEF\xBB\xBF")) first = 3;  // a byte-order mark that some editors write
  while (first < content.size() && std::isspace(static_cast<unsigned char>(content[first]))) ++first;
  if (first < content.size()) {
    if (content[first] == '<') return TConfigFormat::Xml;
    if (content[first] == '{' || content[first] == '/') return TConfigFormat::Json;
  }
  std::string extension = std::filesystem::path(path).extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return extension == ".xml" ? TConfigFormat::Xml : TConfigFormat::Json;
}

bool LoadConfigFile(nchost::TXmlSubConfig& root, const std::string& path, const refhost::TConfigReport& report) {
  std::string content;
  std::string error;
  if (!refhost::ReadTextFile(path, content, error)) {
    if (report) report(nchost::msgtype::kError, path + ": cannot read the configuration: " + error);
    return false;
  }
  if (DetectConfigFormat(path, content) == TConfigFormat::Xml) return refhost::LoadXmlText(root, content, path, report);
  return refhost::LoadJsonText(root, content, path, report);
}

}  // namespace laserctl
