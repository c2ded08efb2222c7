// Owns one file descriptor and closes it.
#pragma once

#include <unistd.h>

#include <utility>

namespace refhost {

class TUniqueFd {
 public:
  TUniqueFd() = default;
  explicit TUniqueFd(int fd) : FFd(fd) {}
  ~TUniqueFd() { Reset(); }
  TUniqueFd(TUniqueFd&& other) noexcept : FFd(std::exchange(other.FFd, -1)) {}
  TUniqueFd& operator=(TUniqueFd&& other) noexcept {
    if (this != &other) Reset(std::exchange(other.FFd, -1));
    return *this;
  }
  TUniqueFd(const TUniqueFd&) = delete;
  TUniqueFd& operator=(const TUniqueFd&) = delete;

  int Get() const { return FFd; }
  bool Valid() const { return FFd >= 0; }
  void Reset(int fd = -1) {
    if (FFd >= 0) ::close(FFd);
    FFd = fd;
  }

 private:
  int FFd = -1;
};

}  // namespace refhost
