// raycussim: a simulated Raycus fiber laser on a serial line, for running the controller without hardware. It
// takes the ESC commands on a pseudo-terminal until SIGINT or SIGTERM and prints what it received, with times.
//
//   raycussim --link /tmp/raycus0 --reply first --verbose

#include <CLI/CLI.hpp>
#include <iostream>
#include <mutex>
#include <string>

#include "sim/common/StopSignals.h"
#include "sim/raycus/RaycusEscEngine.h"
#include "sim/raycus/RaycusPtyServer.h"
#include "sim/raycus/RaycusSimText.h"

int main(int argc, char** argv) {
  CLI::App app{"Simulated Raycus fiber laser taking the ESC serial commands on a pseudo-terminal"};
  std::string link;
  std::string reply = "always";
  int errorCode = 1;
  bool verbose = false;
  app.add_option("--link", link, "Keep a symbolic link to the serial device here (stable across restarts)");
  app.add_option("--reply", reply,
                 "Answers: always (TS to every command), first (TS once), never, error (TE<code>), garbage "
                 "(bytes that are no text), silent (neither executes nor answers)");
  app.add_option("--error-code", errorCode, "The code of the error answer")->check(CLI::Range(0, 99));
  app.add_flag("-v,--verbose", verbose, "Print every command received, with its time and the answer");
  CLI11_PARSE(app, argc, argv);

  lasersim::TRaycusEscEngine engine;
  lasersim::TRaycusEscEngine::TReplyMode mode{};
  if (!lasersim::ParseReplyMode(reply, mode)) {
    std::cerr << "raycussim: --reply must be always, first, never, error, garbage or silent, not '" << reply << "'\n";
    return 2;
  }
  engine.SetReplyMode(mode);
  engine.SetErrorCode(errorCode);
  std::mutex outputMutex;
  if (verbose) {
    engine.SetTraceHook([&](const lasersim::TRaycusEscEngine::TEntry& entry, const std::string& answer) {
      std::lock_guard lock(outputMutex);
      std::cout << lasersim::RaycusLogLine(entry, answer, engine.Started()) << std::endl;
    });
  }

  const lasersim::TStopSignals stopSignals;  // before any server starts

  lasersim::TRaycusPtyServer server(engine, link);
  {
    std::lock_guard lock(outputMutex);
    if (!server.Start()) {
      std::cerr << "raycussim: " << server.LastError() << '\n';
      return 1;
    }
    std::cout << "raycussim: serial port " << server.PortPath() << " (answers: " << lasersim::ReplyModeName(mode) << ")"
              << std::endl;
  }

  stopSignals.Wait();
  server.Stop();
  std::cout << "raycussim: stopped" << std::endl;
  return 0;
}
