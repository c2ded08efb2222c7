// A Modbus TCP IO module in process: coils, discrete inputs, holding and input registers served by libmodbus's
// own server code to any number of clients on one thread, with a log of every write and the faults of a real
// module: slow replies, silence, and vanishing (Stop) and coming back (Start again).
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "refhost/modbus/ModbusMap.h"
#include "sim/common/ServiceThread.h"

struct _modbus;
struct _modbus_mapping_t;

namespace lasersim {

struct TModbusWrite {
  std::chrono::steady_clock::time_point Time;
  int Unit = 0;
  refhost::TModbusTable Table = refhost::TModbusTable::Coil;
  uint16_t Address = 0;
  uint16_t Value = 0;  // a coil as 0 or 1
};

struct TModbusModuleSize {
  int Coils = 256, DiscreteInputs = 64, HoldingRegisters = 256, InputRegisters = 64;
};

class TModbusModuleSim {
 public:
  using Clock = std::chrono::steady_clock;

  explicit TModbusModuleSim(TModbusModuleSize size = {});
  ~TModbusModuleSim();
  TModbusModuleSim(const TModbusModuleSim&) = delete;
  TModbusModuleSim& operator=(const TModbusModuleSim&) = delete;

  // Listens on `ip` (IPv4), `port` (0: any free port; Port() tells which). False with `error` when it cannot.
  bool Start(const std::string& ip, int port, std::string& error);
  // The module vanishes: every connection and the listener are closed. The tables keep their values.
  void Stop();
  // A power cycle: every table back to 0.
  void ClearTables();
  int Port() const { return FPort; }
  bool Running() const { return FThread.Running(); }

  // Every reply is held back this long (a slow module or a congested link).
  void SetReplyDelay(std::chrono::milliseconds delay);
  // Requests are read and never answered (a module that hangs with its connection open).
  void SetSilent(bool silent);
  // Called on the serving thread for every write the module took. Set before Start.
  void SetWriteTrace(std::function<void(const TModbusWrite&)> trace) { FTrace = std::move(trace); }

  bool Coil(uint16_t address) const;
  uint16_t HoldingRegister(uint16_t address) const;
  void SetDiscreteInput(uint16_t address, bool value);
  void SetInputRegister(uint16_t address, uint16_t value);
  std::vector<TModbusWrite> Writes() const;
  // Requests answered since the start.
  int Replies() const;

  // Waits until `holds` is true (checked at once and after every request answered); false on time-out. `holds`
  // may call the getters above.
  bool WaitUntil(const std::function<bool(const TModbusModuleSim&)>& holds, std::chrono::milliseconds timeout) const;

 private:
  void Serve(TServiceThread& thread);
  void Answer(int fd, TServiceThread& thread, std::vector<int>& clients);
  void RecordWrites(const uint8_t* request, int headerLength);
  // Under FMutex.
  bool CoilLocked(uint16_t address) const;

  _modbus* FContext = nullptr;  // the serving thread's alone while it runs
  int FListen = -1;
  int FPort = 0;

  mutable std::mutex FMutex;
  mutable std::condition_variable FChanged;
  _modbus_mapping_t* FTables = nullptr;
  std::vector<TModbusWrite> FWrites;
  std::function<void(const TModbusWrite&)> FTrace;
  std::chrono::milliseconds FDelay{0};
  bool FSilent = false;
  int FReplies = 0;

  TServiceThread FThread;  // last: stopped before the rest goes
};

}  // namespace lasersim
