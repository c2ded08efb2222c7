// The Raycus ESC simulator on a serial line: a pseudo-terminal whose slave device a laser opens as its serial port,
// optionally reachable under a fixed link path that survives a restart (the device name changes, the link does
// not). Stop() is a cable pull: the laser's open port hangs up and the link disappears until the next Start().
// The engine is not owned and must outlive the server.
#pragma once

#include <string>

#include "refhost/transport/PseudoTerminal.h"
#include "sim/common/ServiceThread.h"

namespace lasersim {

class TRaycusEscEngine;

class TRaycusPtyServer {
 public:
  TRaycusPtyServer(TRaycusEscEngine& engine, std::string linkPath = {});
  ~TRaycusPtyServer();
  TRaycusPtyServer(const TRaycusPtyServer&) = delete;
  TRaycusPtyServer& operator=(const TRaycusPtyServer&) = delete;

  // Opens a new pseudo-terminal and starts serving it. False with LastError() set on failure or when running.
  bool Start();
  // Closes the pseudo-terminal and joins the serving thread. Safe when not running.
  void Stop();

  bool Running() const { return FThread.Running(); }
  const std::string& LastError() const { return FLastError; }
  // What a laser opens: the link path when there is one, else the slave device; empty when not running.
  std::string PortPath() const { return FTerminal.IsOpen() ? FTerminal.PortPath() : std::string(); }

 private:
  void Serve(TServiceThread& thread);

  TRaycusEscEngine& FEngine;
  refhost::TPseudoTerminal FTerminal;
  std::string FLastError;
  TServiceThread FThread;
};

}  // namespace lasersim
