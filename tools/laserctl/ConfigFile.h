// Loads a laser configuration file into the plug-in's configuration tree, as JSON or as XML.
#pragma once

#include <string>

#include "host/XmlSubConfig.h"
#include "refhost/ConfigStore.h"

namespace laserctl {

enum class TConfigFormat { Json, Xml };

// The format of a file: its content decides ('<' first means XML, '{' or a comment means JSON), then its
// extension; JSON when neither tells.
TConfigFormat DetectConfigFormat(const std::string& path, const std::string& content);

// Loads the file into `root`. A file that cannot be read or parsed is refused (reported as an error naming the
// file and the position) and leaves the tree as it was; unknown keys and wrong types are reported as warnings.
bool LoadConfigFile(nchost::TXmlSubConfig& root, const std::string& path, const refhost::TConfigReport& report);

}  // namespace laserctl
