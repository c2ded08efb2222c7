#include "refhost/IniLocaleResource.h"

#include <ini.h>

#include <algorithm>
#include <cctype>

#include "refhost/FileText.h"

namespace refhost {
namespace {

std::string Lower(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return s;
}

// The parser's options are process-wide variables; every parse in this process sets them the same way under
// this lock, so that parses on several threads do not disturb each other.
std::mutex GIniParserMutex;

int CollectValue(void* user, const char* section, const char* name, const char* value) {
  auto& sections = *static_cast<std::map<std::string, std::map<std::string, std::string>>*>(user);
  std::string text = value != nullptr ? value : "";
  // A text in double quotes keeps its surrounding blanks (" laser alarm" follows a model name directly).
  if (text.size() >= 2 && text.front() == '"' && text.back() == '"') text = text.substr(1, text.size() - 2);
  sections[Lower(section)][Lower(name)] = std::move(text);
  return 1;
}

// The 1-based number of the first line longer than `limit` bytes, or 0.
size_t FindLongLine(const std::string& text, size_t limit) {
  size_t line = 1;
  size_t start = 0;
  while (start <= text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    if (end - start > limit) return line;
    start = end + 1;
    ++line;
  }
  return 0;
}

}  // namespace

bool TIniLocaleResource::Load(const std::string& path, std::string& error) {
  std::string text;
  std::string readError;
  if (!ReadTextFile(path, text, readError)) {
    error = "locale file '" + path + "' cannot be read: " + readError;
    return false;
  }
  return LoadText(text, path, error);
}

bool TIniLocaleResource::LoadText(const std::string& text, const std::string& sourceName, std::string& error) {
  auto fail = [&](size_t line, const std::string& what) {
    error = "locale file '" + sourceName + "', line " + std::to_string(line) + ": " + what;
    return false;
  };
  if (size_t bad = FindInvalidUtf8(text); bad != std::string::npos)
    return fail(PositionOf(text, bad).Line, "the text is not valid UTF-8");
  if (size_t line = FindLongLine(text, kMaxLineBytes))
    return fail(line, "the line is longer than " + std::to_string(kMaxLineBytes) + " bytes");
  if (text.find('\0') != std::string::npos)
    return fail(PositionOf(text, text.find('\0')).Line, "the text holds a NUL character");

  TSections sections;
  int result;
  {
    std::lock_guard lock(GIniParserMutex);
    ini_use_stack = false;
    ini_allow_realloc = false;
    ini_max_line = static_cast<int>(kMaxLineBytes) + 3;  // room for the line end and the terminator
    ini_initial_alloc = ini_max_line;
    ini_allow_multiline = false;  // an indented line is a key of its own, not the continuation of the last
    ini_allow_inline_comments = false;
    ini_allow_no_value = false;
    ini_stop_on_first_error = false;
    result = ini_parse_string(text.c_str(), CollectValue, &sections);
  }
  if (result == -2) {
    error = "locale file '" + sourceName + "': out of memory while reading it";
    return false;
  }
  if (result != 0)
    return fail(static_cast<size_t>(result), "expected \"[section]\", \"key=text\" or a comment starting with ';'");

  std::lock_guard lock(FMutex);
  FSections = std::move(sections);
  FLoaded = true;
  return true;
}

bool TIniLocaleResource::IsLoaded() const {
  std::lock_guard lock(FMutex);
  return FLoaded;
}

void TIniLocaleResource::ReadStr(const std::string& section, const std::string& key, std::string& value) const {
  std::lock_guard lock(FMutex);
  auto s = FSections.find(Lower(section));
  if (s == FSections.end()) return;
  auto k = s->second.find(Lower(key));
  if (k != s->second.end()) value = k->second;
}

size_t TIniLocaleResource::Count() const {
  std::lock_guard lock(FMutex);
  size_t n = 0;
  for (const auto& [name, keys] : FSections) n += keys.size();
  return n;
}

}  // namespace refhost
