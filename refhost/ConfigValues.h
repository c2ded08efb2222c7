// Shared by the JSON and XML forms of configuration trees: reporting with the file's name, key paths, and the
// text form of key values.
#pragma once

#include <string>
#include <string_view>

#include "host/XmlSubConfig.h"
#include "refhost/ConfigStore.h"

namespace refhost {

// The problems of one load or save, sent to the report callback with what they concern: "configuration file
// '/etc/laser.json'" or, for text in memory that no file stands for, "configuration 'Laser'".
class TConfigIssues {
 public:
  TConfigIssues(std::string subject, const TConfigReport& report) : FSubject(std::move(subject)), FReport(report) {}
  static std::string FileSubject(const std::string& path) { return "configuration file '" + path + "'"; }
  static std::string NodeSubject(const std::string& nodeName) { return "configuration '" + nodeName + "'"; }

  // Something left out or ignored: "<subject>: <what>".
  void Warn(const std::string& what) const;
  // The load or save cannot go on: "<subject> <what>". Returns false for the caller to return.
  bool Refuse(const std::string& what) const;
  // A file that is refused before anything was applied.
  bool RefuseLoad(const std::string& why) const { return Refuse("is refused, nothing was loaded: " + why); }

 private:
  std::string FSubject;
  const TConfigReport& FReport;
};

// The tree as text, and text applied to the tree (the forms are described in ConfigStore.h).
bool WriteJsonText(const nchost::TXmlSubConfig& node, std::string& text, const TConfigIssues& issues);
bool ApplyJsonText(nchost::TXmlSubConfig& node, const std::string& text, const TConfigIssues& issues);
bool WriteXmlText(const nchost::TXmlSubConfig& node, std::string& text, const TConfigIssues& issues);
bool ApplyXmlText(nchost::TXmlSubConfig& node, const std::string& text, const TConfigIssues& issues);

// "IPG.UseTcp": the key's path below the root node.
std::string KeyPath(const std::string& parentPath, const std::string& name);

// What a key of this value's type holds, for messages: "true or false", "a whole number", "a number", "a text".
const char* ExpectedKind(const nchost::TConfigValue& like);

// Values as text: booleans "true"/"false", doubles in the shortest form that reads back exactly ("0.1", "1e+300",
// "inf", "nan"), strings as they are.
std::string ValueToText(const nchost::TConfigValue& value);
// Parses `text` as a value of the same type as `like`; false, with `why`, when it is not one.
bool TextToValue(std::string_view text, const nchost::TConfigValue& like, nchost::TConfigValue& value,
                 std::string& why);

}  // namespace refhost
