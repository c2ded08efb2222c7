// The process image of a Modbus IO module: the value of every mapped point as the host sees it, the writes not
// yet sent, and whether the module is connected. The host's calls and the scan thread meet only here, under one
// lock that is never held across network traffic. A host call does not wake the scan thread: waking it would let
// the scheduler run the scan thread in the caller's place, so a write waits for the next scan instead.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <vector>

#include "refhost/modbus/ModbusMap.h"

namespace refhost {

// A value on its way to the module: the point (an index into the map) and the register value or bit.
struct TPendingWrite {
  size_t Point = 0;
  uint16_t Raw = 0;
};

enum class TImageWrite {
  Queued,        // in the image; the scan thread sends it
  NoSuchPort,    // the map does not name the port: nothing changes
  Disconnected,  // the module is not connected: dropped, the image keeps the output off
  Closed,        // the IO extension is stopping or stopped: ignored
};

class TModbusImage {
 public:
  using Clock = std::chrono::steady_clock;

  explicit TModbusImage(TModbusMap map);

  const TModbusMap& Map() const { return FMap; }
  // The index of the point for the role and port, or -1. Needs no lock: the map never changes.
  int Find(TIORole role, uint8_t port) const { return FIndex[static_cast<size_t>(role)][port]; }

  // Host side -------------------------------------------------------------------------------------------------
  // The point's value in engineering units (a bit as 1 or 0); 0 for a port that is not mapped.
  double Read(TIORole role, uint8_t port) const;
  struct TWriteOutcome {
    TImageWrite Result = TImageWrite::NoSuchPort;
    uint16_t Raw = 0;          // what goes to the module
    bool Clamped = false;      // the value did not fit the register and was limited to 0..65535
    int DroppedSinceLoss = 0;  // with Disconnected: how many writes this outage has dropped, this one included
  };
  TWriteOutcome Write(TIORole role, uint8_t port, double value);
  // CloseAllOutports: every output port (not PWM or DA) off.
  TImageWrite AllOutputsOff();

  // Scan side -------------------------------------------------------------------------------------------------
  // The writes queued since the last call, oldest point first; each point at most once, with its latest value.
  std::vector<TPendingWrite> TakePendingWrites();
  // The module answered a write: accepted, or refused (then the image goes back to what the module still holds,
  // unless the host has written the point again meanwhile).
  void WriteDone(const TPendingWrite& write, bool accepted);
  void StoreRead(size_t point, uint16_t raw);
  // Every mapped output (coils and DA registers) at 0: what a (re)connection and a stop write to the module.
  std::vector<TPendingWrite> SafeStateWrites() const;
  // The link came up: host writes are taken from now on. Returns how many writes the outage dropped.
  int LinkUp();
  // The link went down: every value reads 0 (outputs off, inputs unknown), queued writes are forgotten.
  void LinkDown();
  bool Connected() const;
  // No write is taken any more (the IO extension is stopping).
  void Close();

 private:
  struct TSlot {
    uint16_t Raw = 0;   // the value the host sees
    uint16_t Sent = 0;  // the last value the module accepted
    bool Dirty = false;
  };

  double ToValue(size_t point, uint16_t raw) const;

  const TModbusMap FMap;
  std::array<std::array<int, 256>, kIORoleCount> FIndex;

  mutable std::mutex FMutex;
  std::vector<TSlot> FSlots;  // one per map point
  bool FAnyDirty = false;
  bool FConnected = false;
  bool FClosed = false;
  int FDropped = 0;  // writes dropped since the link went down
};

}  // namespace refhost
