// laserctl's glue for the simulated Raycus serial laser: which configurations it serves and the simulator itself.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "SimTarget.h"
#include "frame/LaserParams.h"
#include "host/XmlSubConfig.h"
#include "sim/raycus/RaycusEscEngine.h"
#include "sim/raycus/RaycusPtyServer.h"

namespace laserctl {

inline constexpr const char* kRaycusFamily = "Raycus";

// A Raycus serial laser of the ESC command set (sub-types 0 and 1) over a serial port; nothing for other lasers.
std::optional<TSimTarget> RaycusSimTarget(const devlaser::TLaserParams& params);
std::optional<TSimTarget> RaycusSimTarget(const nchost::TXmlSubConfig& root);

// The Raycus ESC simulator on a pseudo-terminal.
class TRaycusSimulator {
 public:
  using TTrace = std::function<void(const std::string& line)>;

  void SetTrace(TTrace trace);
  bool Start(std::string& error);
  void Stop() { FServer.Stop(); }
  const std::string& SerialPath() const { return FPath; }

 private:
  lasersim::TRaycusEscEngine FEngine;
  lasersim::TRaycusPtyServer FServer{FEngine};
  std::string FPath;
};

}  // namespace laserctl
