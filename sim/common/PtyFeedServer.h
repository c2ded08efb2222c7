// A simulated laser on a serial line: a pseudo-terminal whose slave device a driver opens as its serial port, and
// whose bytes feed a protocol engine that answers them.
//
// The server keeps its own descriptor of the slave open, so that a driver may open and close the port as often as
// it likes without the master seeing a hang-up. The line is raw (no echo, no CR/LF translation); whatever the
// driver then sets on the port applies. With a link path the device is also reachable under that fixed name, so a
// driver finds the laser again after a restart although the device name changed. Stop() is a cable pull: an open
// port gets an error and the link disappears until the next Start(). SetReplyShape() makes the line slow or choppy
// (ReplyQueue.h) for replies to what arrives from then on.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <utility>

#include "refhost/transport/PseudoTerminal.h"
#include "sim/common/ReplyQueue.h"
#include "sim/common/ServiceThread.h"

namespace lasersim {

class TPtyFeedServer {
 public:
  // Answers the bytes received in one read (empty: no answer).
  using TFeed = std::function<std::string(const std::string& received)>;
  // Forgets a partly received command, so that a new line starts clean.
  using TResetInput = std::function<void()>;

  TPtyFeedServer(std::string threadName, TFeed feed, TResetInput resetInput, std::string linkPath = {});
  ~TPtyFeedServer();
  TPtyFeedServer(const TPtyFeedServer&) = delete;
  TPtyFeedServer& operator=(const TPtyFeedServer&) = delete;

  // Opens a new pseudo-terminal and starts serving it. False with LastError() set on failure or when running.
  bool Start();
  // Closes the pseudo-terminal and joins the serving thread. Safe when not running.
  void Stop();

  bool Running() const { return FThread.Running(); }
  const std::string& LastError() const { return FLastError; }
  // The device a driver opens, e.g. "/dev/pts/7"; empty when not running.
  const std::string& SlavePath() const { return FTerminal.SlavePath(); }
  // What a driver should open: the link path when there is one, else the slave device; empty when not running.
  std::string PortPath() const { return FTerminal.IsOpen() ? FTerminal.PortPath() : std::string(); }
  // Applies to replies to bytes received from now on; the default sends each reply at once and whole.
  void SetReplyShape(const TReplyShape& shape);

 private:
  TReplyShape ReplyShape() const;
  void Serve(TServiceThread& thread);

  const std::string FThreadName;
  const TFeed FFeed;
  const TResetInput FResetInput;
  refhost::TPseudoTerminal FTerminal;
  std::string FLastError;
  mutable std::mutex FShapeMutex;
  TReplyShape FShape;  // guarded by FShapeMutex
  TServiceThread FThread;
};

// The server of one engine type: anything with `std::string Feed(const std::string&)` and `void ResetInput()`.
// The engine is not owned and must outlive the server.
template <class TEngine>
class TPtyEngineServer : public TPtyFeedServer {
 public:
  TPtyEngineServer(TEngine& engine, std::string threadName, std::string linkPath = {})
      : TPtyFeedServer(
            std::move(threadName), [&engine](const std::string& received) { return engine.Feed(received); },
            [&engine] { engine.ResetInput(); }, std::move(linkPath)) {}
};

}  // namespace lasersim
