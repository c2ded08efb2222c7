// Creating and freeing lasers: the one way a laser is built (construct, Create, AfterConstruction) and the one
// deleter that switches it off and stops its threads before it is freed. Nothing here throws.
#pragma once

#include <exception>
#include <memory>
#include <string>
#include <type_traits>

#include "core/NcLaser.h"

namespace devlaser {

// Logs a failure of a laser's construction or destruction step; the host never sees an exception.
void ReportLaserFailure(const std::string& step, const std::string& what) noexcept;

// Shuts the laser down (once) and frees it.
struct TLaserDeleter {
  void operator()(TNcLaser* laser) const noexcept;
};

// Builds a laser of class T from a parameter record and the controller's IO (null: a simulated board). Returns
// null, after logging why, when any construction step fails; a half-built laser is switched off and freed. The
// reason also goes to `error` when one is given, so that a caller can tell the operator.
template <class T>
std::shared_ptr<T> MakeLaser(const TLaserParams& params, std::shared_ptr<nchost::ICtrlExtIO> io,
                             std::string* error = nullptr) noexcept {
  static_assert(std::is_base_of_v<TNcLaser, T>, "MakeLaser builds lasers");
  auto fail = [error](const char* step, const char* what) {
    ReportLaserFailure(step, what);
    if (error != nullptr) *error = what;
  };
  std::shared_ptr<T> laser;
  try {
    laser = std::shared_ptr<T>(new T(params, std::move(io)), TLaserDeleter{});
  } catch (const std::exception& e) {
    fail("Create", e.what());
    return nullptr;
  } catch (...) {
    fail("Create", "unknown exception");
    return nullptr;
  }
  try {
    laser->Create();
    laser->AfterConstruction();
    return laser;
  } catch (const std::exception& e) {
    fail("AfterConstruction", e.what());
  } catch (...) {
    fail("AfterConstruction", "unknown exception");
  }
  return nullptr;  // dropping the last reference shuts the half-built laser down
}

}  // namespace devlaser
