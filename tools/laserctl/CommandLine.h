// laserctl's options and the command words after them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace laserctl {

// Exit statuses: every command ran; a command was rejected or could not run; nothing ran (bad options, a plug-in
// or file that was refused).
inline constexpr int kExitOk = 0;
inline constexpr int kExitCommandFailed = 1;
inline constexpr int kExitSetupFailed = 2;
// Stopped by Ctrl-C or another stop signal (128 + SIGINT, as shells report it); the laser was switched off.
inline constexpr int kExitInterrupted = 130;

struct TInputSetting {
  uint8_t Port = 0;
  bool Value = false;
};

struct TOptions {
  std::string ConfigFile;
  std::string ParamsFile;
  std::string LibFile;
  std::vector<std::string> SerialPorts;  // "N=PATH", checked by the serial port map
  std::string HostDir;
  std::string LocaleFile;
  std::string LogFile;  // --log-file: a copy of every message line
  std::vector<TInputSetting> Inputs;
  std::string Io = "sim";  // the IO extension: sim, or a modbus-tcp:// address
  std::string EcatAlarm;   // --ecat-alarm, checked by the EtherCAT simulator's settings
  std::string EcatStatus;  // --ecat-status
  bool Sim = false;
  bool Json = false;
  bool Debug = false;
  bool TraceIo = false;            // --trace-io: every chunk of the laser link's traffic on standard error
  double LinkWaitSeconds = 5.0;    // --link-wait: how long the laser's link may take to answer first
  bool Version = false;            // print the versions and stop
  bool ListModels = false;         // list the plug-in's laser registrations and stop
  std::vector<std::string> Words;  // the command words, unparsed
};

// Parses the command line. Returns the exit status when laserctl should stop here (after --help, or after a bad
// option that was reported on standard error).
std::optional<int> ParseCommandLine(int argc, char** argv, TOptions& options);

}  // namespace laserctl
