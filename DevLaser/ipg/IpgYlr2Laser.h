// The IPG YLR laser of the newer generation: the shared YLR command logic on a second-generation driver, plus
// three IO-extension outputs. The key-on output is held on for the laser's lifetime, the remote-start output is
// pulsed for 3 s at creation, and the power-control output for 1.2 s at power-on, after which the laser is put
// into internal control with emission enabled, the aiming beam on and the configured diode current. Each pulse is
// finished by a thread the laser owns; the laser stops and joins them before anything they use is freed.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "frame/LaserThread.h"
#include "ipg/IpgYlr2Driver.h"
#include "ipg/IpgYlrLaserBase.h"

namespace devlaser {

class TIPGYLR2Laser : public TIPGYLRLaserBase {
 public:
  static constexpr const char* kRemoteStartThreadName = "IPG2RemoteStart";
  static constexpr const char* kPowerOnThreadName = "IPGYLR2";
  // Pulse lengths and the pauses of the power-on sequence, in ms.
  static constexpr int32_t kRemoteStartPulseMs = 3000;
  static constexpr int32_t kPowerCtrlPulseMs = 1200;
  static constexpr int32_t kPowerOnStepMs = 500;
  // ExecuteCmd numbers of the pulse-model switch, and the query that this laser answers with 10.
  static constexpr int32_t kCmdPulseModelQcw = 27;
  static constexpr int32_t kCmdPulseModelCw = 28;
  static constexpr int32_t kCmdLaserKindQuery = 2101;
  // Status bit 11: the laser's power supply is off.
  static constexpr int32_t kPowerSupplyOffBit = 11;
  static constexpr int32_t kPulseModeBit = 10;

  TIPGYLR2Laser(const TLaserParams& params, std::shared_ptr<nchost::ICtrlExtIO> io);
  // Stops and joins a pulse thread still running, before the base frees the driver.
  ~TIPGYLR2Laser() override;

  // Switches the key-on output on, creates the driver and starts the remote-start pulse, when remote control is
  // configured.
  void Create() override;
  void BeforeDestruction() override;

  std::string GetAlarmIDPrefix() override;
  int32_t ExecuteCmd(int32_t cmd, double param) override;
  void EmissionOn() override;
  void PowerOn() override;

  // Switches the remote-start output on for 3 s; a request during a pulse only sets the output again.
  void RemoteStartOn();
  // Switches the laser between QCW and CW operation with its own command sequence, and logs the switch.
  void SetPulseModel(bool qcw);
  // Whether the laser reports pulse mode.
  bool GetPulseModel();

  // Whether a pulse thread has been started and has not finished its sequence (a stopped one counts).
  bool RemoteStartThreadActive() const;
  bool PowerOnThreadActive() const;

 protected:
  std::unique_ptr<TIPGYLRDriver> CreateDriver() override;
  std::string DeviceName() override;

 private:
  void RemoteStartBody(TLaserThread& thread);
  void PowerOnBody(TLaserThread& thread);
  // Starts `thread` unless its reference is set or the laser is shutting down; the reference is set on start.
  void StartPulse(TLaserThread& thread, bool& active, void (TIPGYLR2Laser::*body)(TLaserThread&));
  void FinishPulse(bool& active);
  void StopPulses();

  mutable std::mutex FPulseLock;
  // Guarded by FPulseLock. A reference stays set when its thread was stopped early, so that no new one starts.
  bool FRemoteStartActive = false;
  bool FPowerOnActive = false;
  bool FPulsesStopped = false;
  TLaserThread FRemoteStartThread{kRemoteStartThreadName};
  TLaserThread FPowerOnThread{kPowerOnThreadName};
};

}  // namespace devlaser
