// laserctl's glue for the own-brand laser: where its simulator must answer (from the configuration or the
// parameters) and the simulator itself, which reads the same description file as the laser's driver, from the
// host's executable folder (--host-dir).
#pragma once

#include <memory>
#include <string>

#include "SimTarget.h"
#include "sim/zorun/ZorunSimEngine.h"
#include "sim/zorun/ZorunSimServer.h"

namespace laserctl {

inline constexpr const char* kZorunFamily = "Zorun";

// The target of an own-brand configuration; false (target untouched) when the root configures another laser.
bool ZorunSimTargetFromConfig(const nchost::TXmlSubConfig& root, TSimTarget& target);
// Completes a target built from parameters of an own-brand laser: the laser's address and port, any link.
void ZorunSimTargetFromParams(const devlaser::TLaserParams& params, TSimTarget& target);
// Points an own-brand laser at a simulator on `host`.
void RedirectZorunHost(nchost::TXmlSubConfig& root, const std::string& host);

class TZorunSimulator {
 public:
  using TTrace = std::function<void(const std::string& line)>;

  // Loads `descriptionFile` and serves the target's link: UDP or TCP on its address and port (on 127.0.0.1 when
  // the address is not this machine's), or a pseudo-terminal.
  bool Start(const TSimTarget& target, const std::string& descriptionFile, std::string& error);
  void Stop();
  // Receives one line per frame, except the polling that would flood it.
  void SetTrace(TTrace trace);

  const std::string& Host() const { return FHost; }
  const std::string& SerialPath() const { return FServer.SlavePath(); }

 private:
  lasersim::TZorunSimEngine FEngine;
  lasersim::TZorunSimServer FServer{FEngine};
  std::string FHost;
};

}  // namespace laserctl
