// laserctl: the command-line host. It loads the laser plug-in, gives it the reference host's services and a
// simulated IO extension, creates a laser and runs the commands given on the command line.
#include <exception>
#include <iostream>

#include "CommandLine.h"
#include "PluginInfo.h"
#include "Session.h"
#include "StopSignals.h"

int main(int argc, char** argv) {
  // Before any thread starts, so that every thread inherits the mask and only laserctl's waits take the signals.
  laserctl::TStopSignals::Block();
  try {
    laserctl::TOptions options;
    if (const auto status = laserctl::ParseCommandLine(argc, argv, options)) return *status;
    if (options.Version || options.ListModels) return laserctl::RunPluginInfo(options);
    laserctl::TSession session(std::move(options));
    return session.Run();
  } catch (const std::exception& e) {
    std::cerr << "laserctl: " << e.what() << '\n';
  } catch (...) {
    std::cerr << "laserctl: unknown exception\n";
  }
  return laserctl::kExitSetupFailed;
}
