// Helpers for the reference host's text files (configuration, locale): whole-file reading with clear errors,
// writing that never leaves a half-written file behind, and positions for error messages.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace refhost {

// Reads the whole file; false, with the system's reason in `error` ("No such file or directory"), when it
// cannot be read.
bool ReadTextFile(const std::string& path, std::string& content, std::string& error);

// Writes `content` to a temporary file beside `path` and renames it over `path`, so that a reader sees either
// the old or the new file. False, with the system's reason in `error`, on failure.
bool WriteTextFileAtomically(const std::string& path, std::string_view content, std::string& error);

// The offset of the first byte that does not belong to a valid UTF-8 sequence, or npos.
size_t FindInvalidUtf8(std::string_view text);

// The 1-based line and column (in bytes) of `offset` in `text`.
struct TTextPosition {
  size_t Line = 1;
  size_t Column = 1;
};
TTextPosition PositionOf(std::string_view text, size_t offset);

}  // namespace refhost
