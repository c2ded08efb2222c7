// Where each port of the IO extension lives on a Modbus TCP IO module: which table, which address, and how an
// engineering value (volts, hertz, a duty ratio) scales to a 16-bit register. A port the map does not name does
// not exist.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace refhost {

enum class TModbusTable { Coil, DiscreteInput, HoldingRegister, InputRegister };

// "coil", "discrete_input", "holding_register", "input_register": the names a map file uses.
const char* ModbusTableName(TModbusTable table);
inline bool IsBitTable(TModbusTable table) {
  return table == TModbusTable::Coil || table == TModbusTable::DiscreteInput;
}

// What a mapped value is to the IO extension. The first five are written by the host, the last two read.
enum class TIORole { Output, PwmEnable, PwmFrequency, PwmRatio, DA, Input, AD };
inline constexpr int kIORoleCount = 7;
inline bool IsWrittenRole(TIORole role) { return role != TIORole::Input && role != TIORole::AD; }
// The IO extension's operation that writes (or reads) the role: "SetOutputbit", "GetADValue", ...
const char* IORoleOperation(TIORole role);

struct TModbusPoint {
  TIORole Role = TIORole::Output;
  uint8_t Port = 0;
  TModbusTable Table = TModbusTable::Coil;
  uint16_t Address = 0;
  // Register units per engineering unit (1000 for millivolts); bits ignore it.
  double Scale = 1.0;
};

struct TModbusMap {
  std::optional<int> Unit;  // the map file's unit, if it names one
  std::vector<TModbusPoint> Points;

  // Output port N on coil N and input port N on discrete input N (1..16); DA output n on holding register n and
  // AD input n on input register n, in millivolts (0..3); PWM port n (1..2): enable on coil 200 + n, frequency
  // in hertz on holding register 100 + 2n, duty ratio in 1/10000 on holding register 101 + 2n.
  static TModbusMap Default();
};

// Reads a JSON map file. False with `error` naming the file and the entry ("io.json: outputs[2] (port 7):
// unknown table \"coils\"...") when the file cannot be read or any entry is wrong; nothing is half taken.
bool LoadModbusMapFile(const std::string& path, TModbusMap& map, std::string& error);
// The same for JSON text; `fileName` only names the source in errors.
bool ParseModbusMap(const std::string& text, const std::string& fileName, TModbusMap& map, std::string& error);

// A run of neighbouring addresses of one table that one request reads, and the points it serves.
struct TModbusReadBlock {
  TModbusTable Table = TModbusTable::DiscreteInput;
  uint16_t Start = 0;
  uint16_t Count = 0;
  std::vector<size_t> Points;  // indices into TModbusMap::Points
};

// The requests that read every input and AD point, each within the protocol's limits per request. Neighbouring
// addresses share a request when the gap between them is small, so that a sparse map does not read addresses a
// module may not have.
std::vector<TModbusReadBlock> PlanModbusReads(const TModbusMap& map);

}  // namespace refhost
