// The library's exception: carries the exact text that is logged or shown when it is caught. It never crosses
// into the host: whoever calls code that may throw it (a laser constructing its driver, a thread body) catches it.
#pragma once

#include <stdexcept>
#include <string>

namespace devlaser {

class ELaserError : public std::runtime_error {
 public:
  explicit ELaserError(const std::string& msg) : std::runtime_error(msg) {}
};

}  // namespace devlaser
