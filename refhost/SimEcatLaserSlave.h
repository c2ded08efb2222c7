// A simulated laser slave on the EtherCAT bus: its process image, and, for an IPG laser, a status word that
// follows the control word the way the laser does. Tests and laserctl set the laser's own side (alarm dword,
// status flags); every write of the controller is recorded with its time and can be printed as a log line.
// Thread-safe.
//
// The IPG laser, as the slave simulates it:
//   - the laser starts (status 0x01|0x02) a start time after the controller sets control bit 0x02 while 0x01 is
//     already set; dropping either bit stops it at once. Setting both bits in one write does not start it.
//   - while started, control bit 0x10 switches emission on: status 0x10 (0x13 with the start bits) and "laser on"
//     0x400;
//   - control bit 0x08 switches the aiming beam: status 0x08;
//   - control bit 0x04 (the alarm reset) clears the alarm dword and the alarm flags 0x04, 0x40 and 0x100.
// A slave of any other kind keeps its outputs as they are set.
#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host/Ecat.h"
#include "refhost/MessageSink.h"

namespace refhost {

enum class TSimEcatSlaveKind { IpgLaser, Plain };

// One write of the controller to the slave's inputs.
struct TEcatInputWrite {
  std::chrono::steady_clock::time_point Time;
  uint32_t Index = 0;
  uint32_t Value = 0;
  // The log line: "EcatInput: 0, 0x0013".
  std::string Line() const;
};

class TSimEcatLaserSlave : public nchost::IEcatLaserSlave {
 public:
  // Process-image indices and bits of the IPG laser.
  static constexpr uint32_t kStatusIndex = 0;
  static constexpr uint32_t kAlarmIndex = 3;
  static constexpr uint32_t kControlIndex = 0;
  static constexpr uint32_t kPowerIndex = 1;
  static constexpr uint32_t kEnable = 0x01, kStart = 0x02, kReset = 0x04, kAiming = 0x08, kEmission = 0x10;
  static constexpr uint32_t kAlarmValid = 0x04, kProgramInterrupted = 0x40, kWarningValid = 0x100, kLaserOn = 0x400;
  // Entries the slave maps in each direction.
  static constexpr uint32_t kImageSize = 8;
  static constexpr std::chrono::milliseconds kDefaultStartTime{100};

  explicit TSimEcatLaserSlave(TSimEcatSlaveKind kind, std::chrono::milliseconds startTime = kDefaultStartTime);

  TSimEcatSlaveKind Kind() const { return FKind; }

  // Prints every input write as an information log line of `category` to `sink` (null: stop printing).
  void SetPrintSink(std::shared_ptr<TMessageSink> sink, std::string category = "Ecat");

  // The laser's side. Status flags are or-ed into the status word the laser computes.
  void SetAlarmDword(uint32_t value) { SetOutput(kAlarmIndex, value); }
  void SetStatusFlags(uint32_t flags) { SetOutput(kStatusIndex, flags); }
  void SetOutput(uint32_t index, uint32_t value);

  // Every input write in order, or only those of the control word.
  std::vector<TEcatInputWrite> Writes() const;
  std::vector<TEcatInputWrite> ControlWrites() const;
  void ClearWrites();
  // Waits until a recorded input write (also one recorded before the call) matches; false on time-out.
  bool WaitForWrite(const std::function<bool(const TEcatInputWrite&)>& matches,
                    std::chrono::milliseconds timeout) const;
  // Waits until `holds` is true of every write recorded so far (checked at once and after each write). `holds`
  // runs under the slave's lock and must not call back into it.
  bool WaitForWrites(const std::function<bool(const std::vector<TEcatInputWrite>&)>& holds,
                     std::chrono::milliseconds timeout) const;

  // IEcatLaserSlave.
  uint32_t ReadOutput(uint32_t index) override;
  uint32_t ReadInput(uint32_t index) override;
  void WriteInput(uint32_t index, uint32_t value) override;

 private:
  uint32_t IpgStatusLocked(std::chrono::steady_clock::time_point now) const;
  void ApplyIpgControlLocked(uint32_t previous, uint32_t control, std::chrono::steady_clock::time_point now);

  const TSimEcatSlaveKind FKind;
  const std::chrono::milliseconds FStartTime;
  mutable std::mutex FMutex;
  mutable std::condition_variable FWritten;
  std::array<uint32_t, kImageSize> FOutputs{};
  std::array<uint32_t, kImageSize> FInputs{};
  bool FStarting = false;  // the start bits were raised in order; started from FStartedAt on
  std::chrono::steady_clock::time_point FStartedAt{};
  std::vector<TEcatInputWrite> FWrites;
  std::shared_ptr<TMessageSink> FPrintSink;
  std::string FPrintCategory;
};

}  // namespace refhost
