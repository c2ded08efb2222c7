// zorunsim: a simulated own-brand fiber laser for running the controller without hardware. It speaks the protocol
// of a laser element of the description file on UDP, TCP and/or a pseudo-terminal until SIGINT or SIGTERM.
//
//   zorunsim --file examples/ZorunLaser.json --udp 127.0.0.1:10001 --pty --alarms 20 --verbose

#include <CLI/CLI.hpp>
#include <cstdint>
#include <iostream>
#include <mutex>
#include <optional>
#include <string>

#include "sim/common/HostPort.h"
#include "sim/common/StopSignals.h"
#include "sim/zorun/ZorunSimEngine.h"
#include "sim/zorun/ZorunSimServer.h"

int main(int argc, char** argv) {
  CLI::App app{"Simulated own-brand fiber laser speaking the protocol of its description file"};
  std::string file = "ZorunLaser.json";
  int laserIdx = 0;
  std::optional<std::string> udp;
  std::optional<std::string> tcp;
  bool pty = false;
  std::string alarms = "0";
  bool verbose = false;
  app.add_option("-f,--file", file, "The description file (default ZorunLaser.json)");
  app.add_option("--laser-idx", laserIdx, "The laser element of the file (default 0)");
  app.add_option("--udp", udp, "Answer datagrams on ADDR:PORT");
  app.add_option("--tcp", tcp, "Listen on ADDR:PORT");
  app.add_flag("--pty", pty, "Serve on a pseudo-terminal and print its device path");
  app.add_option("--alarms", alarms, "Alarm byte in hexadecimal that state replies carry, e.g. 21");
  app.add_flag("-v,--verbose", verbose, "Print every frame received and the reply");
  CLI11_PARSE(app, argc, argv);

  uint8_t alarmByte = 0;
  try {
    size_t used = 0;
    const unsigned long value = std::stoul(alarms, &used, 16);
    if (used != alarms.size() || value > 0xFF) throw std::out_of_range(alarms);
    alarmByte = static_cast<uint8_t>(value);
  } catch (const std::exception&) {
    std::cerr << "zorunsim: --alarms needs one hexadecimal byte, not '" << alarms << "'\n";
    return 2;
  }
  lasersim::TZorunSimLinks links;
  for (auto [text, address, port, name] : {std::tuple{&udp, &links.UdpAddress, &links.UdpPort, "--udp"},
                                           std::tuple{&tcp, &links.TcpAddress, &links.TcpPort, "--tcp"}}) {
    if (!*text) continue;
    std::string host;
    if (!lasersim::SplitHostPort(**text, host, *port)) {
      std::cerr << "zorunsim: " << name << " needs ADDR:PORT, not '" << **text << "'\n";
      return 2;
    }
    *address = host;
  }
  links.Pty = pty;
  if (!udp && !tcp && !pty) {
    std::cerr << "zorunsim: give at least one of --udp, --tcp and --pty\n";
    return 2;
  }

  lasersim::TZorunSimEngine engine;
  std::string error;
  if (!engine.Load(file, laserIdx, error)) {
    std::cerr << "zorunsim: " << error << '\n';
    return 1;
  }
  engine.SetAlarmByte(alarmByte);
  std::mutex outputMutex;
  if (verbose) {
    engine.SetTraceHook([&outputMutex](int, const std::string& entry, const std::string& reply) {
      std::lock_guard lock(outputMutex);
      std::cout << "<- " << entry << "\n-> " << (reply.empty() ? "(no reply)" : reply) << std::endl;
    });
  }

  const lasersim::TStopSignals stopSignals;  // before any server starts

  lasersim::TZorunSimServer server(engine);
  {
    std::lock_guard lock(outputMutex);
    if (!server.Start(links)) {
      std::cerr << "zorunsim: " << server.LastError() << '\n';
      return 1;
    }
    std::cout << "zorunsim: " << engine.Description() << '\n';
    if (udp) std::cout << "zorunsim: UDP on " << *links.UdpAddress << ':' << server.UdpPort() << '\n';
    if (tcp) std::cout << "zorunsim: TCP on " << *links.TcpAddress << ':' << server.TcpPort() << '\n';
    if (pty) std::cout << "zorunsim: serial port " << server.SlavePath() << '\n';
    std::cout << std::flush;
  }

  stopSignals.Wait();
  server.Stop();
  std::cout << "zorunsim: stopped" << std::endl;
  return 0;
}
