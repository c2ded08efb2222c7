// The maker's own networked fiber laser. Every laser-side action is a command queued on its driver: emission,
// aiming beam and diode current; its alarms are the alarm bits of the driver's description file, reported as
// IDs bit + 2 (IDs 0 and 1 stay with the base laser). Emission and aiming read back as last commanded.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "core/FiberLaser.h"
#include "registry/LaserLinks.h"
#include "zorun/ZorunDriver.h"

namespace devlaser {

class TZorunLaser : public TFiberLaser {
 public:
  // The described frames run over a serial line, TCP or UDP.
  static constexpr uint8_t kProtocolLinks = llSerial | llTcp | llUdp;
  // Alarm bit b of the laser is alarm ID b + kAlarmIdOffset.
  static constexpr int32_t kAlarmIdOffset = 2;

  // Builds the driver, which loads the description file and opens the link; a failure of either fails the laser.
  TZorunLaser(const TLaserParams& params, std::shared_ptr<nchost::ICtrlExtIO> io);
  ~TZorunLaser() override;

  std::string GetDeviceDesc() override;
  std::string GetAlarmIDPrefix() override;
  void RegisterAlarms(nchost::INcAlarmTable20& table) override;
  // The description's laser name followed by the alarm's text while that alarm is active; for every other ID,
  // the base alarms included, the laser name alone.
  std::string GetAlarmDesc(int32_t id) override;
  bool UpdateAlarms(nchost::INcAlarmReport20& report) override;
  // The diode current last queued.
  double GetDiodeCurrent() override;
  bool GetIsAimingOn() override;
  void EmissionOn() override;
  // Skips the fiber laser's emission handling on purpose: the laser switches emission itself.
  void EmissionOff() override;
  void SetAimingOn(bool on) override;
  // Hands the value to the driver, which reports a value out of range itself: always taken.
  bool SetDiodeCustom(double value) override;

  TZorunDriver& Driver() { return *FDriver; }

 private:
  std::unique_ptr<TZorunDriver> FDriver;
  std::atomic<bool> FAimingOn{false};
};

}  // namespace devlaser
