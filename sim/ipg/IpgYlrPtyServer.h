// The IPG YLR simulator on a serial line: a pseudo-terminal whose slave path a driver opens as its serial port.
//
// The server keeps its own descriptor of the slave open, so that a driver may open and close the port as often as
// it likes without the master seeing a hang-up. The line is raw (no echo, no CR/LF translation); whatever the
// driver then sets on the port applies. Stop() closes the pseudo-terminal: an open driver port gets an error, and
// the next Start() creates a new one, whose slave path may differ. The engine is not owned and must outlive the
// server.
#pragma once

#include <string>

#include "refhost/transport/PseudoTerminal.h"
#include "sim/common/ServiceThread.h"

namespace lasersim {

class TIpgYlrEngine;

class TIpgYlrPtyServer {
 public:
  explicit TIpgYlrPtyServer(TIpgYlrEngine& engine);
  ~TIpgYlrPtyServer();
  TIpgYlrPtyServer(const TIpgYlrPtyServer&) = delete;
  TIpgYlrPtyServer& operator=(const TIpgYlrPtyServer&) = delete;

  // Opens a new pseudo-terminal and starts serving it. False with LastError() set on failure or when running.
  bool Start();
  // Closes the pseudo-terminal and joins the serving thread. Safe when not running.
  void Stop();

  bool Running() const { return FThread.Running(); }
  const std::string& LastError() const { return FLastError; }
  // The device a driver opens, e.g. "/dev/pts/7"; empty when not running.
  const std::string& SlavePath() const { return FTerminal.SlavePath(); }

 private:
  void Serve(TServiceThread& thread);

  TIpgYlrEngine& FEngine;
  refhost::TPseudoTerminal FTerminal;
  std::string FLastError;
  TServiceThread FThread;
};

}  // namespace lasersim
