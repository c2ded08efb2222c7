// What every fiber laser shares: the diode current (peak power) with its fall-back from the laser's command link
// to the analogue DA output, emission through the PWM output and two enable outputs, a one-shot emission timed by
// the controller's hardware, and the exclusion of emission and aiming beam on hard-wired lasers.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

#include "core/NcLaser.h"

namespace devlaser {

class TFiberLaser : public TNcLaser {
 public:
  // Events of MutexEmAndAB.
  enum TEmAbEvent : int32_t {
    kAimingSwitchedOff = 2,
    kAimingSwitchedOn = 3,
    kEmissionSwitchedOff = 4,
    kEmissionSwitchedOn = 5
  };
  // Changes of the diode current up to this many percent are not sent to the laser.
  static constexpr double kDiodeDeadBand = 0.2;

  TFiberLaser(const TLaserParams& params, std::shared_ptr<nchost::ICtrlExtIO> io);

  // ---- overrides of TNcLaser ----
  void AfterConstruction() override;
  void DynamicPower(double value) override;
  double GetDiodeCurrent() override;
  bool GetIsLaserOn() override;
  void LaserOn() override;
  void LaserOff() override;
  void SetAimingOn(bool on) override;
  void SetDiodeCurrent(double value) override;
  void SetDiodeCurrentByDA(double value) override;
  void SetDiodeCurrentWaitBusy(double value) override;

  // ---- operations added, in slot order ----
  virtual bool GetIsQCW();
  // Offers a diode current to the laser's command link; true when the laser took it. The base has no link: it
  // only records the value, so that the DA output is written.
  virtual bool SetDiodeCustom(double value);
  virtual bool GetIsHardWire();

  // Applies a diode current now (no dead band): through the command link when the laser has one and analogue
  // control is off, otherwise on the DA output.
  void ForceDiodeCurrent(double value);
  // The configured starting diode current, limited to 10..100 percent.
  double GetDefDiodeCurrent() const;
  // Keeps exactly one of emission and aiming beam on when the exclusion is configured; `kind` is a TEmAbEvent.
  void MutexEmAndAB(int32_t kind);
  // Arms a one-shot emission of `ms` milliseconds, timed by `ext`, for the next LaserOn. A null extension or a
  // negative time disarms it.
  void SetLaserCtrl(std::shared_ptr<nchost::IPwmCtrlExt> ext, int32_t ms);

  double GetLastDiodeCurrent() const { return FLastDiodeCurrent.load(); }
  uint8_t EnablePort1() const { return FEnablePort1; }
  uint8_t EnablePort2() const { return FEnablePort2; }

 protected:
  // Takes the armed timed emission (one shot): its extension and length, or null when none is armed.
  std::shared_ptr<nchost::IPwmCtrlExt> TakeTimedEmission(int32_t& ms);
  bool TimedEmissionArmed() const;

  mutable std::mutex FPwmCtrlLock;  // guards the timed-emission pair
  std::shared_ptr<nchost::IPwmCtrlExt> FPwmCtrlExt;
  int32_t FTimedEmissionMs = -1;
  // Serialises the diode-current setters; re-entrant because SetDiodeCustom of a model runs inside it and may
  // set the diode current itself.
  std::recursive_mutex FDiodeLock;
  const uint8_t FEnablePort1;
  const uint8_t FEnablePort2;
  const bool FMutexEmAndAB;
  std::atomic<double> FDiodeCurrent{0.0};
  std::atomic<double> FLastDiodeCurrent{0.0};

  // Supervision of a diode current sent over a command link, for models whose laser echoes the set value: a set
  // is pending from the request until the echo matches; the alarm rises when the echo does not come in time.
  std::atomic<bool> FDiodeSetPending{false};
  std::atomic<bool> FDiodeSetAlarm{false};
  std::atomic<bool> FDiodeSetCheckActive{false};
  std::atomic<double> FDiodeSetRequested{0.0};
  std::atomic<uint32_t> FDiodeSetStartTick{0};
  // Set when the operator acknowledged the diode-set alarm; the alarm is then not raised again.
  std::atomic<bool> FDiodeSetAcknowledged{false};
};

}  // namespace devlaser
