// Comparisons of configured texts (model names, modes, command names), which operators write in any case.
#pragma once

#include <algorithm>
#include <cctype>
#include <string_view>

namespace devlaser {

inline bool SameText(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
    return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
  });
}

// True when `part` occurs in `text` (case-sensitive); an empty part occurs nowhere.
inline bool ContainsText(std::string_view text, std::string_view part) {
  return !part.empty() && text.find(part) != std::string_view::npos;
}

}  // namespace devlaser
