// The IPG fiber laser on the controller's EtherCAT bus. The laser does not talk to the laser itself: the host's
// EtherCAT system exchanges the laser slave's process image every bus cycle, and this class reads the status word
// and alarm dword from it and writes the control word and the power set-point into it.
//
// Switching emission on runs the laser's start sequence when the laser is not started (about 650 ms), and the
// alarm reset holds its pulse for 500 ms; both wait on the caller's thread, as the laser needs the control word to
// stay put for those times. Shutting the laser down cuts either wait short and leaves control word 0.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "core/FiberLaser.h"
#include "ecat/EcatSlaveGate.h"
#include "registry/LaserLinks.h"

namespace devlaser {

class TIPGEcatLaser : public TFiberLaser {
 public:
  // The control and status words run through the laser slave of the host's EtherCAT system.
  static constexpr uint8_t kProtocolLinks = llEthercat;
  static constexpr const char* kNoBusLaserError = "Ecat Laser Error: Rtos not Initialized";
  // The start sequence: the bit each step sets or clears, and how long the laser gets before the next step.
  struct TStartStep {
    uint32_t Bit;
    bool Set;
    std::chrono::milliseconds Hold;
  };
  static const TStartStep kStartSequence[5];
  static constexpr std::chrono::milliseconds kResetPulse{500};

  // Takes the laser slave of the host's EtherCAT system; throws ELaserError without a system or a slave.
  TIPGEcatLaser(const TLaserParams& params, std::shared_ptr<nchost::ICtrlExtIO> io);

  // Enables the laser (control word 1).
  void Create() override;
  // Leaves control word 0 and closes the laser's door to the bus before the base switches off: a start sequence
  // or reset pulse under way gives up, and nothing reaches the slave any more.
  void BeforeDestruction() override;

  std::string GetDeviceDesc() override;
  std::string GetAlarmIDPrefix() override;
  void ResetAlarm(int32_t id) override;
  void RegisterAlarms(nchost::INcAlarmTable20& table) override;
  std::string GetAlarmDesc(int32_t id) override;
  bool UpdateAlarms(nchost::INcAlarmReport20& report) override;
  bool GetIsAimingOn() override;
  bool GetIsEmissionOn() override;
  bool GetIsLaserOn() override;
  void EmissionOn() override;
  void EmissionOff() override;
  void PowerOn() override;
  void SetAimingOn(bool on) override;
  bool SetDiodeCustom(double value) override;

  // What UpdateAlarms last read, for inspection.
  uint32_t LastStatusWord() const { return FLastStatus.load(); }
  uint32_t LastAlarmDword() const { return FLastAlarms.load(); }

 private:
  uint32_t Status();
  // Writes one control bit, then holds it for `hold` unless the laser is shut down; false when it was.
  bool ChangeAndHold(uint32_t bit, bool set, std::chrono::milliseconds hold);

  TEcatSlaveGate FBus;
  std::atomic<uint32_t> FLastStatus{0};
  std::atomic<uint32_t> FLastAlarms{0};
};

}  // namespace devlaser
