#include "refhost/FileText.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

namespace refhost {
namespace {

std::string Reason(int err) { return std::strerror(err); }

// Writes all of `data` to `fd`, retrying short writes and interruptions.
bool WriteAll(int fd, std::string_view data) {
  while (!data.empty()) {
    ssize_t n = ::write(fd, data.data(), data.size());
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    data.remove_prefix(static_cast<size_t>(n));
  }
  return true;
}

}  // namespace

bool ReadTextFile(const std::string& path, std::string& content, std::string& error) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    error = Reason(errno);
    return false;
  }
  std::string result;
  char buffer[65536];
  for (;;) {
    ssize_t n = ::read(fd, buffer, sizeof buffer);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      error = Reason(errno);
      ::close(fd);
      return false;
    }
    if (n == 0) break;
    result.append(buffer, static_cast<size_t>(n));
  }
  ::close(fd);
  content = std::move(result);
  return true;
}

bool WriteTextFileAtomically(const std::string& path, std::string_view content, std::string& error) {
  std::string temp = path + ".tmp-XXXXXX";
  int fd = ::mkostemp(temp.data(), O_CLOEXEC);
  if (fd < 0) {
    error = Reason(errno);
    return false;
  }
  bool ok = WriteAll(fd, content) && ::fsync(fd) == 0;
  int err = errno;
  // mkostemp creates the file readable by the owner only; a configuration file is an ordinary file.
  ::fchmod(fd, 0644);
  if (::close(fd) != 0 && ok) {
    ok = false;
    err = errno;
  }
  if (ok && ::rename(temp.c_str(), path.c_str()) != 0) {
    ok = false;
    err = errno;
  }
  if (!ok) {
    ::unlink(temp.c_str());
    error = Reason(err);
  }
  return ok;
}

size_t FindInvalidUtf8(std::string_view text) {
  const auto* s = reinterpret_cast<const unsigned char*>(text.data());
  size_t n = text.size();
  size_t i = 0;
  while (i < n) {
    unsigned char c = s[i];
    if (c < 0x80) {
      ++i;
      continue;
    }
    size_t len;
    uint32_t cp;
    if ((c & 0xE0) == 0xC0) {
      len = 2;
      cp = c & 0x1F;
    } else if ((c & 0xF0) == 0xE0) {
      len = 3;
      cp = c & 0x0F;
    } else if ((c & 0xF8) == 0xF0) {
      len = 4;
      cp = c & 0x07;
    } else {
      return i;
    }
    if (i + len > n) return i;
    for (size_t k = 1; k < len; ++k) {
      if ((s[i + k] & 0xC0) != 0x80) return i;
      cp = (cp << 6) | (s[i + k] & 0x3F);
    }
    // Overlong forms, UTF-16 surrogates and values beyond Unicode are not UTF-8.
    static constexpr uint32_t kMinimum[] = {0, 0, 0x80, 0x800, 0x10000};
    if (cp < kMinimum[len] || (cp >= 0xD800 && cp <= 0xDFFF) || cp > 0x10FFFF) return i;
    i += len;
  }
  return std::string_view::npos;
}

TTextPosition PositionOf(std::string_view text, size_t offset) {
  TTextPosition pos;
  size_t end = offset < text.size() ? offset : text.size();
  for (size_t i = 0; i < end; ++i) {
    if (text[i] == '\n') {
      ++pos.Line;
      pos.Column = 1;
    } else {
      ++pos.Column;
    }
  }
  return pos;
}

}  // namespace refhost
