#include "refhost/JsonParse.h"

namespace refhost {

bool ParseJsonText(const std::string& text, TJson& document, std::string& error, bool allowComments) {
  try {
    document = TJson::parse(text, nullptr, true, allowComments);
    return true;
  } catch (const TJson::parse_error& e) {
    // Drop the library's "[json.exception.parse_error.101] " prefix; the rest says where and what.
    std::string what = e.what();
    if (auto close = what.find("] "); what.rfind("[json.exception.", 0) == 0 && close != std::string::npos)
      what.erase(0, close + 2);
    error = what;
    return false;
  } catch (const std::exception& e) {
    error = e.what();
    return false;
  }
}

std::string DumpJson(const TJson& value, int indent) {
  return value.dump(indent, ' ', false, TJson::error_handler_t::replace);
}

}  // namespace refhost
