// Parsing JSON text for the reference host's own sources, with error messages that give the position.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace refhost {

using TJson = nlohmann::ordered_json;

// Deepest nesting of arrays and objects a document may have. Hand-written configurations need a handful of levels;
// the bound keeps code that walks a document recursively (printing, copying into trees) off the end of the stack.
inline constexpr int kMaxJsonDepth = 256;

// False, with `error` such as "line 2, column 5: unexpected '}'", when `text` is not one JSON document, holds a
// number no double can hold, or nests deeper than kMaxJsonDepth. `allowComments` accepts // and /* */ comments
// (in hand-written files).
bool ParseJsonText(const std::string& text, TJson& document, std::string& error, bool allowComments = false);

// Compact or indented text; strings that are not UTF-8 are written with U+FFFD in place of the bad bytes.
std::string DumpJson(const TJson& value, int indent = -1);

// True for integers, also those written with an exponent or too large for 64 bits (which arrive as doubles).
bool JsonIsWholeNumber(const TJson& value);

// "a whole number", "an array", ...: what a value is, for messages that must not print the value itself.
std::string JsonKindName(const TJson& value);

}  // namespace refhost
