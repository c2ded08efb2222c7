// The Raycus QCW simulator on a serial line: a pseudo-terminal whose slave device a driver opens as its serial port.
//
// The server keeps its own descriptor of the slave open, so that the driver may open and close the port freely.
// Stop() closes the pseudo-terminal, which an open port sees as its device vanishing; Start() makes a new one. With
// a link path the device is also reachable under that fixed name, so a driver finds the laser again after a
// Stop() and Start(). The engine is not owned and must outlive the server.
#pragma once

#include <string>

#include "refhost/transport/PseudoTerminal.h"
#include "sim/common/ServiceThread.h"

namespace lasersim {

class TRayQcwEngine;

class TRayQcwPtyServer {
 public:
  explicit TRayQcwPtyServer(TRayQcwEngine& engine, std::string linkPath = {});
  ~TRayQcwPtyServer();
  TRayQcwPtyServer(const TRayQcwPtyServer&) = delete;
  TRayQcwPtyServer& operator=(const TRayQcwPtyServer&) = delete;

  // Opens a new pseudo-terminal and starts serving it. False with LastError() set on failure or when running.
  bool Start();
  // Closes the pseudo-terminal and joins the serving thread. Safe when not running.
  void Stop();

  bool Running() const { return FThread.Running(); }
  const std::string& LastError() const { return FLastError; }
  // What a serial port should open: the link path when there is one, else the slave device; empty when stopped.
  std::string PortPath() const { return FTerminal.IsOpen() ? FTerminal.PortPath() : std::string(); }

 private:
  void Serve(TServiceThread& thread);

  TRayQcwEngine& FEngine;
  refhost::TPseudoTerminal FTerminal;
  std::string FLastError;
  TServiceThread FThread;
};

}  // namespace lasersim
