// modbussim: a Modbus TCP IO module for driving a hard-wired laser without hardware. It serves 256 coils and
// holding registers and 64 discrete inputs and input registers, prints every write with the time since its
// start, and runs until SIGINT or SIGTERM.
//
//   modbussim --listen 127.0.0.1:1502 --input 3=1 --input-register 0=4500

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdint>
#include <iomanip>
#include <iostream>
#include <string>
#include <vector>

#include "sim/common/StopSignals.h"
#include "sim/modbus/ModbusModuleSim.h"

namespace {

bool SplitPair(const std::string& text, char separator, std::string& left, int& right, int high) {
  const auto at = text.rfind(separator);
  if (at == std::string::npos) return false;
  left = text.substr(0, at);
  try {
    size_t used = 0;
    right = std::stoi(text.substr(at + 1), &used);
    return used == text.size() - at - 1 && right >= 0 && right <= high && !left.empty();
  } catch (const std::exception&) {
    return false;
  }
}

// "N=V" with N an address and V from 0 to `high`.
bool SplitAssignment(const std::string& text, uint16_t& address, int& value, int high) {
  std::string left;
  int number = 0;
  if (!SplitPair(text, '=', left, value, high)) return false;
  try {
    size_t used = 0;
    number = std::stoi(left, &used);
    if (used != left.size() || number < 0 || number > 65535) return false;
  } catch (const std::exception&) {
    return false;
  }
  address = static_cast<uint16_t>(number);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Simulated Modbus TCP IO module: coils, discrete inputs, holding and input registers"};
  std::string listen = "127.0.0.1:1502";
  std::vector<std::string> inputs, registers;
  app.add_option("--listen", listen, "Listen on ADDR:PORT (IPv4)")->capture_default_str();
  app.add_option("--input", inputs, "Discrete input N is on (1) or off (0) (repeatable)")->type_name("N=0|1");
  app.add_option("--input-register", registers, "Input register N holds V (repeatable)")->type_name("N=V");
  CLI11_PARSE(app, argc, argv);

  lasersim::TModbusModuleSim module;
  for (const auto& text : inputs) {
    uint16_t address = 0;
    int value = 0;
    if (!SplitAssignment(text, address, value, 1)) {
      std::cerr << "modbussim: --input needs N=0 or N=1, not '" << text << "'\n";
      return 2;
    }
    module.SetDiscreteInput(address, value == 1);
  }
  for (const auto& text : registers) {
    uint16_t address = 0;
    int value = 0;
    if (!SplitAssignment(text, address, value, 65535)) {
      std::cerr << "modbussim: --input-register needs N=V with V from 0 to 65535, not '" << text << "'\n";
      return 2;
    }
    module.SetInputRegister(address, static_cast<uint16_t>(value));
  }
  std::string host;
  int port = 0;
  if (!SplitPair(listen, ':', host, port, 65535)) {
    std::cerr << "modbussim: --listen needs ADDR:PORT, not '" << listen << "'\n";
    return 2;
  }
  module.SetWriteTrace([](const lasersim::TModbusWrite& w) {
    std::cout << "unit " << w.Unit << ": " << refhost::ModbusTableName(w.Table) << ' ' << w.Address << " := " << w.Value
              << std::endl;
  });

  const lasersim::TStopSignals stopSignals;  // before any server starts

  std::string error;
  if (!module.Start(host, port, error)) {
    std::cerr << "modbussim: " << error << '\n';
    return 1;
  }
  std::cout << "modbussim: listening on " << host << ':' << module.Port() << std::endl;
  stopSignals.Wait();
  module.Stop();
  std::cout << "modbussim: stopped" << std::endl;
  return 0;
}
