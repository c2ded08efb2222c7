// What the IPG YLR lasers of both generations share: a fiber laser commanded through a YLR text-command driver.
// Emission is switched by the laser's own command sequences (CW, QCW with or without gate mode, EO-YLR), the
// aiming beam and the diode current go over the link, and the state queries and alarm reports read the status
// word the driver's monitor keeps fresh, so that none of them ever waits for the link.
//
// Status bit b of the laser is reported as alarm ID b + 2; ID 511 is the diode-current set that the laser never
// confirmed. Derived classes choose the driver generation and add their own outputs and threads.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "core/FiberLaser.h"
#include "ipg/IpgYlrDriver.h"
#include "registry/LaserLinks.h"

namespace devlaser {

class TIPGYLRLaserBase : public TFiberLaser {
 public:
  // The YLR text commands run over a serial line or TCP.
  static constexpr uint8_t kProtocolLinks = llSerial | llTcp;
  // The model whose emission sequence differs from every other YLR laser's.
  static constexpr const char* kEoYlrModel = "EO-YLR";
  // The alarm text of a status bit without an entry in the driver's table.
  static constexpr const char* kUnknownAlarmText = "Unknow Error";
  // An echoed current this far from the request or further means the set did not take.
  static constexpr double kDiodeSetTolerance = 0.05;

  TIPGYLRLaserBase(const TLaserParams& params, std::shared_ptr<nchost::ICtrlExtIO> io);
  // Frees the driver; derived classes have stopped their threads by then.
  ~TIPGYLRLaserBase() override;

  // Creates the driver (a refused transport throws, and the laser is not created) and configures it.
  void Create() override;

  std::string GetDeviceDesc() override;
  void RegisterAlarms(nchost::INcAlarmTable20& table) override;
  std::string GetAlarmDesc(int32_t id) override;
  bool UpdateAlarms(nchost::INcAlarmReport20& report) override;
  double GetDiodeCurrent() override;
  bool GetIsAimingOn() override;
  bool GetIsEmissionOn() override;
  bool GetIsLaserOn() override;
  void EmissionOn() override;
  void EmissionOff() override;
  void LaserOn() override;
  void LaserOff() override;
  void SetAimingOn(bool on) override;
  void SetDiodeCurrentWaitBusy(double value) override;
  bool GetIsQCW() override;
  bool SetDiodeCustom(double value) override;

  // Named commands of the host's service pages; "ResetErrors" (any case) clears the laser's errors.
  void ExecCmd(const std::string& name, double value) override;

  // The driver; null only while the laser is being built.
  TIPGYLRDriver* Driver() const { return FDriver.get(); }
  bool HasComm() const { return FHasComm; }
  bool GetIgnoreCommResult() const { return FIgnoreCommResult; }
  // QCW operation (from the configuration, changed by a pulse-model switch).
  void SetQCWModel(bool on) { FQcwMode.store(on); }
  bool GetIsUseOutputLaserOn() const { return FParams.CfgIPG.YLR.UseOutputLaserOn; }
  // Runs the diode-set supervision once (UpdateAlarms does so at every call).
  void CheckSetDidoeAlarm();
  bool DiodeSetAlarm() const { return FDiodeSetAlarm.load(); }
  bool DiodeSetPending() const { return FDiodeSetPending.load(); }

 protected:
  virtual std::unique_ptr<TIPGYLRDriver> CreateDriver() = 0;
  // Sets the driver's masks for the configured operation; called once the driver exists.
  virtual void ConfigureDriver();
  // The device description before the serial number.
  virtual std::string DeviceName();

  // The commands that start emission in the configured operation; false when emission is left to the external
  // emission signal (QCW without gate mode), so that no emission command follows.
  bool SendEmissionSetup();
  // Sends commands only when the laser has a link.
  bool LinkUsable() const { return FHasComm && FDriver; }
  // Whether the host wants the commanded states reported instead of the laser's.
  static bool TrustCachedStates();
  // The diode current the QCW laser takes at most, in percent.
  double QcwCurrentLimit() const;

  // IO-extension outputs given as configured port numbers; a port that does not exist (0, for one) is skipped.
  bool OutputUsable(int32_t port);
  void SetOutput(int32_t port, bool on);

  std::atomic<bool> FAimingCached{false};
  std::atomic<bool> FEmissionCached{false};

 private:
  std::unique_ptr<TIPGYLRDriver> FDriver;
  bool FHasComm = false;
  bool FIgnoreCommResult = false;
  std::atomic<bool> FQcwMode{false};
};

}  // namespace devlaser
