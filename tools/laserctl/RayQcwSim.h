// laserctl --sim for Raycus QCW lasers: which configurations and parameter records mean a QCW laser on a serial
// line, and the simulated laser that answers on a pseudo-terminal for it.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "SimTarget.h"
#include "sim/rayqcw/RayQcwEngine.h"
#include "sim/rayqcw/RayQcwPtyServer.h"

namespace laserctl {

inline constexpr const char* kRayQcwFamily = "Raycus QCW";

// A Raycus configuration whose model string (or, without one, its pulse mode) selects the QCW laser: its target,
// a serial one when the laser uses a serial port. Nothing for any other configuration.
std::optional<TSimTarget> RayQcwTargetFromConfig(const nchost::TXmlSubConfig& root);
// Whether the parameters make the plug-in build a Raycus QCW laser (Raycus, sub-type 2).
bool IsRayQcwParams(const devlaser::TLaserParams& params);

// The simulated QCW laser: one module without alarms, identification "RFL-QCW150".
class TRayQcwSimulator {
 public:
  using TTrace = std::function<void(const std::string& line)>;

  explicit TRayQcwSimulator(const TTrace& trace);
  bool Start(std::string& error);
  void Stop();
  // The device the laser's serial port opens; empty before Start().
  const std::string& SerialPath() const { return FPath; }
  lasersim::TRayQcwEngine& Engine() { return FEngine; }

 private:
  lasersim::TRayQcwEngine FEngine;
  lasersim::TRayQcwPtyServer FPty{FEngine};  // after the engine: stops first
  std::string FPath;
};

}  // namespace laserctl
