#include "CommandLine.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <iostream>

#include "IoBackend.h"

namespace laserctl {
namespace {

constexpr const char* kDescription =
    "laserctl: drives a laser through the laser plug-in, as a controller would, on a simulated IO extension or\n"
    "a Modbus TCP IO module (--io).\n"
    "Operator messages, log lines and every write to the IO extension (\"SetOutputbit: 5, True\") go to standard\n"
    "error; command results go to standard output.";

constexpr const char* kFooter = R"(Commands, run in order after the options:
  power-on  power-off  laser-on  laser-off  emission-on  emission-off  aiming-on  aiming-off
  diode PERCENT      set the diode current (peak power), 0..100 %
  pwm-freq HZ        set the PWM frequency
  pwm-ratio RATIO    set the PWM duty ratio, 0..1
  wait MS            wait MS milliseconds
  exec CMD [PARAM]   ExecuteCmd with command number CMD (and PARAM, default 0); prints its result
  status             the laser's information source as a JSON object
  alarms             every registered alarm ID with its raised state and text (after UpdateAlarms)
  watch SECONDS      the status and raised alarms, then once a second only what changed

Every option, command word and value is checked before the laser is created: a mistake is reported with its
position and the nearest command, and nothing runs.
The exit status is 0 when every command ran; 1 when one was rejected or failed, the model fell back to the
default laser or the laser's link never came up; 2 when nothing could run (a bad option, word or file); 130 when
Ctrl-C stopped the run (the laser is still switched off and destroyed). Every line on standard error starts with
the time. Without --config or --params the default laser is created.

A laser with a serial, TCP or UDP link must answer on it within --link-wait seconds (default 5) before the
commands run; the wait ends at its first answer. A link that never came up (nothing listening, no such serial
device, no reply) is named on standard error, no command runs and the exit status is 1.
--trace-io shows that link's traffic as the transport sends (->) and receives (<-) it, one line per chunk:
  2026-11-24 01:08:27.993 [comm] Trace IO: TCP 127.0.0.1:10001 -> 4 bytes: 44 45 43 0D  "DEC\r"

With --json, standard output has one JSON object per line, each with "t" (seconds since the commands started,
to the millisecond) and "cmd" (the command it comes from):
  {"t": 0.4, "cmd": "status", "status": {"LaserType": "Default", "IsEmissionOn": false, ...}}
  {"t": 0.5, "cmd": "alarms", "id": 3, "raised": true, "desc": "..."}          one line per alarm
  {"t": 0.6, "cmd": "exec", "number": 5, "param": 0.0, "result": 1}
  {"t": 0.7, "cmd": "watch", "status": {...}}                                  the state when watch starts,
  {"t": 0.7, "cmd": "watch", "alarm": 5, "raised": true, "desc": "..."}        then what changes:
  {"t": 1.7, "cmd": "watch", "key": "IsEmissionOn", "before": false, "after": true}
Commands without a result print nothing. Messages go to standard error as JSON lines with "time" (local time).

Example: the default laser with a ready output 5 held 300 ms before the emission gate 6, the diode current on
DA port 1201 (DA 1):
  laserctl --config examples/default-laser.json emission-on status wait 400 status diode 60 status
)";

bool ParseInput(const std::string& text, TInputSetting& setting) {
  const auto equals = text.find('=');
  if (equals == std::string::npos) return false;
  int port = 0;
  const char* first = text.data();
  const char* last = text.data() + equals;
  auto [end, ec] = std::from_chars(first, last, port);
  if (ec != std::errc() || end != last || port < 1 || port > 255) return false;
  const std::string value = text.substr(equals + 1);
  if (value != "0" && value != "1") return false;
  setting.Port = static_cast<uint8_t>(port);
  setting.Value = value == "1";
  return true;
}

}  // namespace

std::optional<int> ParseCommandLine(int argc, char** argv, TOptions& options) {
  CLI::App app{kDescription, "laserctl"};
  app.footer(kFooter);
  // The first word that is not an option starts the commands; everything from there is theirs (so "exec 5 -1"
  // keeps its negative parameter).
  app.prefix_command();
  app.get_formatter()->column_width(26);

  auto* config =
      app.add_option("-c,--config", options.ConfigFile, "A laser configuration, JSON or XML (by content or extension)")
          ->check(CLI::ExistingFile)
          ->type_name("FILE");
  auto* params = app.add_option("-p,--params", options.ParamsFile,
                                "A ready parameter record as JSON: the record's field names, sub-records as nested "
                                "objects, enumerations by name (\"eltIPG\") or ordinal; missing fields keep the "
                                "record's defaults")
                     ->check(CLI::ExistingFile)
                     ->type_name("FILE");
  config->excludes(params);
  params->excludes(config);
  app.add_option("--lib", options.LibFile,
                 "The plug-in to load (default: libDevLaser.so beside laserctl, then the installed one)")
      ->type_name("FILE");
  // One value per occurrence, so that "--input 3=1 status" leaves "status" to the commands.
  app.add_option("--serial", options.SerialPorts, "Serial port number N is the device PATH (repeatable)")
      ->type_name("N=PATH")
      ->allow_extra_args(false);
  app.add_option("--host-dir", options.HostDir,
                 "The folder the host presents as its executable's folder (description files are found there)")
      ->check(CLI::ExistingDirectory)
      ->type_name("DIR");
  app.add_option("--locale", options.LocaleFile, "An INI locale file (section \"Device_Strs\") for operator messages")
      ->check(CLI::ExistingFile)
      ->type_name("FILE");
  app.add_option("--log-file", options.LogFile, "Also append every message line to FILE")->type_name("FILE");
  std::vector<std::string> inputs;
  app.add_option("--input", inputs, "Set input port N of the simulated IO extension before the commands (repeatable)")
      ->type_name("N=0|1")
      ->allow_extra_args(false);
  app.add_option("--io", options.Io,
                 "The IO extension: sim (simulated, the default) or a Modbus TCP IO module, "
                 "modbus-tcp://HOST[:PORT][?unit=N&scan-ms=M&map=FILE]")
      ->type_name("URI");
  app.add_flag("--sim", options.Sim,
               "Start the simulator that matches the configured laser's protocol and connect the laser to it");
  app.add_option("--ecat-alarm", options.EcatAlarm,
                 "With --sim and a laser on the EtherCAT bus: the laser slave's alarm dword (for example 0x00100000); "
                 "its alarm bits count as valid (status flag 0x100) unless --ecat-status says otherwise")
      ->type_name("DWORD");
  app.add_option("--ecat-status", options.EcatStatus,
                 "With --sim and a laser on the EtherCAT bus: status flags the laser slave sets in its status word "
                 "(0x04 or 0x100: alarm bits valid, 0x40: program interrupted)")
      ->type_name("FLAGS");
  app.add_flag("--json", options.Json, "One JSON object per line on stdout");
  app.add_flag("--debug", options.Debug, "Debug traces: the laser's debug mode, traces, the parameters used");
  app.add_flag("--trace-io", options.TraceIo,
               "Every chunk the laser's serial, TCP or UDP link sends (->) or receives (<-) on standard error: the "
               "link, the byte count, the bytes in hex and as text (control bytes escaped: \\r, \\xNN)");
  app.add_option("--link-wait", options.LinkWaitSeconds,
                 "How long a laser with a serial, TCP or UDP link may take to answer first, before the commands "
                 "(default 5; 0: no wait, the commands run whatever the link does); a link that stays silent that long "
                 "ends the run with exit status 1")
      ->check(CLI::Range(0.0, 3600.0))
      ->type_name("SECONDS");
  app.add_flag("--version", options.Version, "The versions of laserctl, the host interfaces and the plug-in");
  app.add_flag("--list-models", options.ListModels,
               "Every laser registration of the plug-in: model key, family, sub-types, class, links, simulator");

  if (argc <= 1) {  // nothing asked: how to ask
    std::cout << app.help();
    return kExitSetupFailed;
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    const int status = app.exit(e);
    return status == 0 ? kExitOk : kExitSetupFailed;
  }
  if (std::string error; !CheckIoUri(options.Io, error)) {
    std::cerr << "laserctl: " << error << '\n';
    return kExitSetupFailed;
  }
  for (const auto& text : inputs) {
    TInputSetting setting;
    if (!ParseInput(text, setting)) {
      std::cerr << "laserctl: --input needs N=0 or N=1 with a port N from 1 to 255, not \"" << text << "\"\n";
      return kExitSetupFailed;
    }
    options.Inputs.push_back(setting);
  }
  options.Words = app.remaining();
  // "--" between the options and the commands is accepted as the usual end of the options.
  if (!options.Words.empty() && options.Words.front() == "--") options.Words.erase(options.Words.begin());
  return std::nullopt;
}

}  // namespace laserctl
