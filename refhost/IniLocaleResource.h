// The host's locale resource read from an INI file in UTF-8: "[Device_Strs]" holds the library's texts, one
// "SVariableName=text" line each, but any section can be read.
//
// Section and key names match without regard to ASCII case, as in the INI files of the controller's other
// tools. A value is the rest of its line with surrounding blanks removed, then one pair of enclosing double
// quotes, so that a quoted text keeps its blanks; ';' and '#' start a comment only at the beginning of a line,
// so texts may contain them. A key that appears twice keeps its last value.
#pragma once

#include <map>
#include <mutex>
#include <string>

#include "host/Locale.h"

namespace refhost {

class TIniLocaleResource : public nchost::TVqLocaleResource {
 public:
  // Replaces the texts with those of the file. A file that cannot be read, is not UTF-8 or has a malformed line
  // is refused whole: false, `error` names the file (and the line), and the texts loaded before stay.
  bool Load(const std::string& path, std::string& error);
  // The same for INI text in memory; `sourceName` stands for the file name in errors.
  bool LoadText(const std::string& text, const std::string& sourceName, std::string& error);

  bool IsLoaded() const override;
  void ReadStr(const std::string& section, const std::string& key, std::string& value) const override;

  // The number of keys loaded, over all sections.
  size_t Count() const;

  // Longest line accepted, in bytes.
  static constexpr size_t kMaxLineBytes = 16 * 1024;

 private:
  using TSections = std::map<std::string, std::map<std::string, std::string>>;

  mutable std::mutex FMutex;
  bool FLoaded = false;
  TSections FSections;  // lower-case section -> lower-case key -> text
};

}  // namespace refhost
