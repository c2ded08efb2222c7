// rayqcwsim: a simulated Raycus QCW laser for running the controller without hardware. It answers the QCW frame
// protocol on a pseudo-terminal until SIGINT or SIGTERM and prints the device to open as the serial port.
//
//   rayqcwsim --id RFL-QCW450 --modules 2 --alarm 1:4 --verbose

#include <CLI/CLI.hpp>
#include <cstdint>
#include <iostream>
#include <mutex>
#include <string>
#include <vector>

#include "sim/common/StopSignals.h"
#include "sim/rayqcw/RayQcwEngine.h"
#include "sim/rayqcw/RayQcwPtyServer.h"

namespace {

std::string Hex(const std::string& bytes) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  for (unsigned char b : bytes) {
    if (!text.empty()) text += ' ';
    text += kDigits[b >> 4];
    text += kDigits[b & 0x0F];
  }
  return text;
}

// "MODULE:INDEX" (module from 0, alarm index 0..12) raises that alarm byte.
bool ParseAlarm(const std::string& text, size_t& module, size_t& index) {
  const auto colon = text.find(':');
  if (colon == std::string::npos) return false;
  try {
    size_t used = 0;
    module = std::stoul(text.substr(0, colon), &used);
    if (used != colon) return false;
    index = std::stoul(text.substr(colon + 1), &used);
    return used == text.size() - colon - 1 && index < lasersim::TRayQcwEngine::kAlarmBytesPerModule;
  } catch (const std::exception&) {
    return false;
  }
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Simulated Raycus QCW fiber laser speaking the AA 55 frame protocol on a pseudo-terminal"};
  std::string id = "RFL-QCW150";
  std::string type = "QCW";
  int modules = 1;
  std::vector<std::string> alarms;
  int mode = 1;
  std::string link;
  bool corrupt = false;
  bool twice = false;
  bool silent = false;
  bool verbose = false;
  app.add_option("--id", id, "Identification the laser reports (QCW150 or QCW450 in it selects the limits)");
  app.add_option("--type", type, "Laser type text the laser reports");
  app.add_option("--modules", modules, "Number of laser modules (13 alarm bytes each)")->check(CLI::Range(0, 19));
  app.add_option("--alarm", alarms, "Raise alarm INDEX (0..12) of MODULE (from 0), as MODULE:INDEX");
  app.add_option("--mode", mode, "Mode byte sent in front of the status-with-mode answer")->check(CLI::Range(0, 255));
  app.add_option("--link", link, "Also make the serial device reachable as this path (a symbolic link)");
  auto* corruptFlag = app.add_flag("--corrupt", corrupt, "Answer with a wrong check word");
  auto* twiceFlag = app.add_flag("--twice", twice, "Send the previous answer in front of every answer");
  auto* silentFlag = app.add_flag("--silent", silent, "Receive requests but never answer");
  corruptFlag->excludes(twiceFlag)->excludes(silentFlag);
  twiceFlag->excludes(silentFlag);
  app.add_flag("-v,--verbose", verbose, "Print every request received and the answer");
  CLI11_PARSE(app, argc, argv);

  lasersim::TRayQcwEngine engine;
  engine.SetLaserId(id);
  engine.SetLaserType(type);
  engine.SetModuleCount(static_cast<uint8_t>(modules));
  engine.SetModeByte(static_cast<uint8_t>(mode));
  for (const auto& text : alarms) {
    size_t module = 0;
    size_t index = 0;
    if (!ParseAlarm(text, module, index) || module >= static_cast<size_t>(modules)) {
      std::cerr << "rayqcwsim: --alarm needs MODULE:INDEX with a module below --modules and an index 0..12, not '"
                << text << "'\n";
      return 2;
    }
    engine.SetAlarm(module, index, 1);
  }
  if (corrupt) engine.SetReplyMode(lasersim::TRayQcwEngine::TReplyMode::CorruptCheck);
  if (twice) engine.SetReplyMode(lasersim::TRayQcwEngine::TReplyMode::Double);
  if (silent) engine.SetReplyMode(lasersim::TRayQcwEngine::TReplyMode::Silent);
  std::mutex outputMutex;
  if (verbose) {
    engine.SetTraceHook([&outputMutex](const std::string& command, const std::string& reply) {
      std::lock_guard lock(outputMutex);
      std::cout << "<- " << command << "\n-> " << (reply.empty() ? "(no answer)" : Hex(reply)) << std::endl;
    });
  }

  const lasersim::TStopSignals stopSignals;  // before any server starts

  lasersim::TRayQcwPtyServer server(engine, link);
  {
    std::lock_guard lock(outputMutex);
    if (!server.Start()) {
      std::cerr << "rayqcwsim: " << server.LastError() << '\n';
      return 1;
    }
    std::cout << "rayqcwsim: serial port " << server.PortPath() << std::endl;
  }
  stopSignals.Wait();
  server.Stop();
  std::cout << "rayqcwsim: stopped" << std::endl;
  return 0;
}
