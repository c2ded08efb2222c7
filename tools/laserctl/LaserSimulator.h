// The simulated laser that laserctl --sim runs beside the real plug-in: the simulator of the configured laser's
// family, listening where the laser's driver will look for it.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "RaycusSim.h"
#include "SimTarget.h"
#include "ZorunSimulator.h"
#include "sim/ipg/IpgYlrEngine.h"
#include "sim/ipg/IpgYlrPtyServer.h"
#include "sim/ipg/IpgYlrTcpServer.h"

namespace laserctl {

class TLaserSimulator {
 public:
  using TTrace = std::function<void(const std::string& line)>;

  TLaserSimulator();
  ~TLaserSimulator();
  TLaserSimulator(const TLaserSimulator&) = delete;
  TLaserSimulator& operator=(const TLaserSimulator&) = delete;

  // Receives one line per command the simulated laser answers, except the status polls that would flood it.
  void SetTrace(TTrace trace);

  // Starts the simulator for `target` (which must have one). A TCP simulator listens on the configured address;
  // when that is not an address of this machine it listens on 127.0.0.1 instead, and TcpHost() tells the caller
  // to point the laser there. False with `error` when it cannot start.
  bool Start(const TSimTarget& target, std::string& error);
  // Stops serving and joins the serving thread; the laser's driver sees its laser vanish.
  void Stop();

  // Where the simulator answers: the TCP address, or the serial device.
  const std::string& TcpHost() const { return FTcpHost; }
  const std::string& SerialPath() const;

 private:
  lasersim::TIpgYlrEngine FEngine;
  // The servers use the engine; they are declared after it so that they stop first.
  std::unique_ptr<lasersim::TIpgYlrTcpServer> FTcp;
  std::unique_ptr<lasersim::TIpgYlrPtyServer> FPty;
  std::unique_ptr<TZorunSimulator> FZorun;
  TTrace FTrace;
  std::string FTcpHost;
  std::unique_ptr<TRaycusSimulator> FRaycus;
};

}  // namespace laserctl
