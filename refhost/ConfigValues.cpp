#include "refhost/ConfigValues.h"

#include <cctype>
#include <charconv>
#include <cstdint>
#include <limits>

#include "host/HostDefs.h"

namespace refhost {
namespace {

std::string_view Trimmed(std::string_view s) {
  const char* blanks = " \t\r\n";
  size_t first = s.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return s.substr(first, s.find_last_not_of(blanks) - first + 1);
}

bool EqualsIgnoringCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i]))) return false;
  return true;
}

std::string Quoted(std::string_view text) { return "\"" + std::string(text) + "\""; }

}  // namespace

void TConfigIssues::Warn(const std::string& what) const {
  if (FReport) FReport(nchost::msgtype::kWarning, FSubject + ": " + what);
}

bool TConfigIssues::Refuse(const std::string& what) const {
  if (FReport) FReport(nchost::msgtype::kError, FSubject + " " + what);
  return false;
}

std::string KeyPath(const std::string& parentPath, const std::string& name) {
  return parentPath.empty() ? name : parentPath + "." + name;
}

const char* ExpectedKind(const nchost::TConfigValue& like) {
  switch (like.index()) {
    case 0:
      return "true or false";
    case 1:
      return "a whole number";
    case 2:
      return "a number";
    default:
      return "a text";
  }
}

std::string ValueToText(const nchost::TConfigValue& value) {
  if (const bool* b = std::get_if<bool>(&value)) return *b ? "true" : "false";
  if (const int32_t* i = std::get_if<int32_t>(&value)) return std::to_string(*i);
  if (const double* d = std::get_if<double>(&value)) {
    char buffer[64];
    auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, *d);  // shortest exact form
    return ec == std::errc() ? std::string(buffer, end) : std::string("nan");
  }
  return std::get<std::string>(value);
}

bool TextToValue(std::string_view text, const nchost::TConfigValue& like, nchost::TConfigValue& value,
                 std::string& why) {
  if (std::holds_alternative<std::string>(like)) {
    value = std::string(text);
    return true;
  }
  std::string_view t = Trimmed(text);
  if (std::holds_alternative<bool>(like)) {
    if (EqualsIgnoringCase(t, "true") || t == "1") {
      value = true;
      return true;
    }
    if (EqualsIgnoringCase(t, "false") || t == "0") {
      value = false;
      return true;
    }
    why = "expected true or false, found " + Quoted(text);
    return false;
  }
  if (!t.empty() && t.front() == '+') t.remove_prefix(1);
  if (std::holds_alternative<int32_t>(like)) {
    int64_t v = 0;
    auto [end, ec] = std::from_chars(t.data(), t.data() + t.size(), v);
    if (ec == std::errc::result_out_of_range ||
        (ec == std::errc() && end == t.data() + t.size() &&
         (v < std::numeric_limits<int32_t>::min() || v > std::numeric_limits<int32_t>::max()))) {
      why = std::string(Trimmed(text)) + " is outside the 32-bit integer range";
      return false;
    }
    if (ec != std::errc() || end != t.data() + t.size() || t.empty()) {
      why = "expected a whole number, found " + Quoted(text);
      return false;
    }
    value = static_cast<int32_t>(v);
    return true;
  }
  double v = 0.0;
  auto [end, ec] = std::from_chars(t.data(), t.data() + t.size(), v);
  if (ec == std::errc::result_out_of_range) {
    why = std::string(Trimmed(text)) + " is outside the range of a double";
    return false;
  }
  if (ec != std::errc() || end != t.data() + t.size() || t.empty()) {
    why = "expected a number, found " + Quoted(text);
    return false;
  }
  value = v;
  return true;
}

}  // namespace refhost
