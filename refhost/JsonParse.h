// Parsing JSON text for the reference host's own sources, with error messages that give the position.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace refhost {

using TJson = nlohmann::ordered_json;

// False, with `error` such as "parse error at line 2, column 5: syntax error while parsing object ...", when
// `text` is not one JSON document. `allowComments` accepts // and /* */ comments (in hand-written files).
bool ParseJsonText(const std::string& text, TJson& document, std::string& error, bool allowComments = false);

// Compact or indented text; strings that are not UTF-8 are written with U+FFFD in place of the bad bytes.
std::string DumpJson(const TJson& value, int indent = -1);

}  // namespace refhost
