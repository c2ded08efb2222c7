// The Raycus quasi-continuous-wave (QCW) fiber laser. Emission is switched by outputs (the remote start port and
// the hard-wired emission gate); the serial frame driver (RayQcwDriver.h) carries the pulse settings, laser on and
// off, the laser's identification and its alarms. The driver is used when a serial port is configured and the
// laser is configured as a QCW laser (sub-type 2); without it the outputs still work.
//
// Alarm byte i of the driver (13 per module, in module order) is reported as alarm ID i + 2.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "core/FiberLaser.h"
#include "raycus/RayQcwDriver.h"
#include "registry/LaserLinks.h"

namespace devlaser {

class TRayQCWLaser : public TFiberLaser {
 public:
  // The AA 55 frames run over a serial line.
  static constexpr uint8_t kProtocolLinks = llSerial;
  static constexpr int32_t kQcwSubType = 2;
  // The one numbered command the laser answers itself, with this value and no action.
  static constexpr int32_t kQueryCmd = 2101;
  static constexpr int32_t kQueryCmdResult = 10;
  static constexpr const char* kUnknownAlarmText = "Unknow Error";

  TRayQCWLaser(const TLaserParams& params, std::shared_ptr<nchost::ICtrlExtIO> io);
  ~TRayQCWLaser() override;

  // Creates the driver when it is used (opening the port, starting its polling thread, resetting the laser mode).
  void Create() override;

  std::string GetDeviceDesc() override;
  int32_t ExecuteCmd(int32_t cmd, double param) override;
  std::string GetAlarmIDPrefix() override;
  void RegisterAlarms(nchost::INcAlarmTable20& table) override;
  std::string GetAlarmDesc(int32_t id) override;
  bool UpdateAlarms(nchost::INcAlarmReport20& report) override;
  double GetDiodeCurrent() override;
  bool GetIsEmissionOn() override;
  void EmissionOn() override;
  void EmissionOff() override;
  void LaserOn() override;
  void LaserOff() override;
  bool GetIsQCW() override;
  bool SetDiodeCustom(double value) override;
  bool GetIsHardWire() override;

  // Stores the configured pulse settings in the driver (width 1) and selects outer modulation; sends no settings.
  void InitLaserParam();

  // The driver, or null when the laser has no serial port or is not configured as QCW.
  TRayQCWDriver* Driver() const { return FDriver.get(); }

 private:
  bool DriverInUse() const { return FDriver != nullptr; }
  bool OutputPresent(int32_t port);
  void SetOutput(int32_t port, bool on);

  const int32_t FSerialPortNo;
  const int32_t FGatePort;
  const int32_t FStartPort;
  std::atomic<bool> FEmissionFlag{false};
  std::unique_ptr<TRayQCWDriver> FDriver;
};

}  // namespace devlaser
