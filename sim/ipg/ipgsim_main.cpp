// ipgsim: a simulated IPG YLR fiber laser for running the controller (or any other client of the YLR text commands)
// without hardware. It answers the commands as the laser's RS-232 manual gives them, on TCP and/or on a
// pseudo-terminal, until SIGINT or SIGTERM.
//
//   ipgsim --tcp 127.0.0.1:10001 --pty --verbose

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdint>
#include <iostream>
#include <mutex>
#include <optional>
#include <string>

#include "sim/common/HostPort.h"
#include "sim/common/PrintableBytes.h"
#include "sim/common/StopSignals.h"
#include "sim/ipg/IpgYlrEngine.h"
#include "sim/ipg/IpgYlrPtyServer.h"
#include "sim/ipg/IpgYlrStatus.h"
#include "sim/ipg/IpgYlrTcpServer.h"

namespace {

constexpr const char* kDescription =
    "Simulated IPG YLR fiber laser speaking the YLR text commands over TCP and a pseudo-terminal.\n"
    "It follows the RS-232 chapter of the laser's manual: the status word's bits (2 emission, 4 analogue control,\n"
    "8 aiming beam, 10 pulse mode, 11 power supply off, 12 modulation, 15 emission start-up, 16 gate mode,\n"
    "18 hardware emission control, 21 key switch in remote, 22 hardware aiming control, the others alarms and\n"
    "warnings), replies such as \"SDC: 40.0\" and \"SFWS: 2.4\", \"BCMD\" for an unknown command, and the\n"
    "laser's refusals: \"ERR: Out of Range\", \"ERR: Emission is on\" for EMOD, DMOD, EEC and DEC during\n"
    "emission, \"ERR: Keyswitch in remote\" for EMON and EMOFF with --keyswitch-remote.\n"
    "--lenient accepts those mode changes during emission, as earlier versions of this simulator did.";

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{kDescription};
  std::optional<std::string> tcp;
  bool pty = false;
  std::string status = "0";
  bool powerOff = false;
  bool silent = false;
  bool garbageLines = false;
  bool garbageBytes = false;
  bool verbose = false;
  bool lenient = false;
  bool keySwitchRemote = false;
  int startupMs = 0;
  std::string serial = "12345";
  app.add_option("--tcp", tcp, "Listen on ADDR:PORT (default 127.0.0.1:10001 when --pty is not given)");
  app.add_flag("--pty", pty, "Serve on a pseudo-terminal and print its device path");
  app.add_option("--status", status, "Initial alarm word in hexadecimal, e.g. 2 for overheat");
  app.add_flag("--power-off", powerOff, "Start with the power supply off (status bit 11)");
  auto* silentFlag = app.add_flag("--silent", silent, "Receive commands but never answer");
  auto* linesFlag = app.add_flag("--garbage", garbageLines, "Answer every command with a junk line");
  auto* bytesFlag = app.add_flag("--garbage-bytes", garbageBytes, "Answer every command with random bytes, no CR");
  silentFlag->excludes(linesFlag)->excludes(bytesFlag);
  linesFlag->excludes(bytesFlag);
  app.add_option("--serial", serial, "Serial number the laser reports");
  app.add_flag("--lenient", lenient, "Accept EMOD, DMOD, EEC and DEC during emission instead of refusing them");
  app.add_flag("--keyswitch-remote", keySwitchRemote,
               "Key switch in remote (status bit 21): EMON and EMOFF are refused, emission follows the hardware");
  app.add_option("--startup-ms", startupMs,
                 "Emission start-up phase after EMON in ms, shown by status bit 15 (a real laser: about 3000)")
      ->check(CLI::Range(0, 60000));
  app.add_flag("-v,--verbose", verbose, "Print every command received and the reply");
  CLI11_PARSE(app, argc, argv);

  uint32_t alarms = 0;
  try {
    size_t used = 0;
    const unsigned long value = std::stoul(status, &used, 16);
    if (used != status.size() || value > 0xFFFFFFFFul) throw std::out_of_range(status);
    alarms = static_cast<uint32_t>(value);
  } catch (const std::exception&) {
    std::cerr << "ipgsim: --status needs a 32-bit hexadecimal word, not '" << status << "'\n";
    return 2;
  }
  if (!tcp && !pty) tcp = "127.0.0.1:" + std::to_string(lasersim::TIpgYlrTcpServer::kDefaultPort);
  std::string address;
  uint16_t port = 0;
  if (tcp && !lasersim::SplitHostPort(*tcp, address, port, lasersim::TIpgYlrTcpServer::kDefaultPort)) {
    std::cerr << "ipgsim: --tcp needs ADDR or ADDR:PORT, not '" << *tcp << "'\n";
    return 2;
  }

  lasersim::TIpgYlrEngine engine;
  engine.SetAlarmWord(alarms);
  if ((alarms & ~lasersim::ipgylr::kLaserStateMask) != alarms)
    std::cerr << "ipgsim: laser-state bits of --status are ignored (use --power-off for bit 11)\n";
  engine.SetPowerSupplyOff(powerOff);
  engine.SetSerialNumber(serial);
  engine.SetLenient(lenient);
  engine.SetKeySwitchRemote(keySwitchRemote);
  engine.SetEmissionStartupTime(std::chrono::milliseconds(startupMs));
  if (silent) engine.SetReplyMode(lasersim::TIpgYlrEngine::TReplyMode::Silent);
  if (garbageLines) engine.SetReplyMode(lasersim::TIpgYlrEngine::TReplyMode::GarbageLines);
  if (garbageBytes) engine.SetReplyMode(lasersim::TIpgYlrEngine::TReplyMode::GarbageBytes);
  std::mutex outputMutex;
  if (verbose) {
    engine.SetTraceHook([&outputMutex](const std::string& command, const std::string& reply) {
      std::lock_guard lock(outputMutex);
      std::cout << "<- " << lasersim::PrintableBytes(command) << "\n-> "
                << (reply.empty() ? "(no reply)" : lasersim::PrintableBytes(reply)) << std::endl;
    });
  }

  const lasersim::TStopSignals stopSignals;  // before any server starts

  lasersim::TIpgYlrTcpServer tcpServer(engine);
  lasersim::TIpgYlrPtyServer ptyServer(engine);
  {
    std::lock_guard lock(outputMutex);
    if (tcp) {
      if (!tcpServer.Start(address, port)) {
        std::cerr << "ipgsim: " << tcpServer.LastError() << '\n';
        return 1;
      }
      std::cout << "ipgsim: listening on " << address << ':' << tcpServer.Port() << std::endl;
    }
    if (pty) {
      if (!ptyServer.Start()) {
        std::cerr << "ipgsim: " << ptyServer.LastError() << '\n';
        return 1;
      }
      std::cout << "ipgsim: serial port " << ptyServer.SlavePath() << std::endl;
    }
  }

  stopSignals.Wait();
  ptyServer.Stop();
  tcpServer.Stop();
  std::cout << "ipgsim: stopped" << std::endl;
  return 0;
}
