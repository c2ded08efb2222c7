// The common base of every laser: the commanded state, the PWM and aiming primitives on the controller's IO
// extension, the numbered command set the host's operators drive any laser with, and the alarm conventions.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "core/LaserIOGate.h"
#include "core/LaserPorts.h"
#include "frame/LaserParams.h"
#include "frame/LaserThread.h"
#include "host/CtrlExtIO.h"
#include "host/NcAlarm.h"
#include "host/NcDevice.h"
#include "host/NcLaser30.h"

namespace devlaser {

// Rounds to the nearest integer, halves to the even neighbour (42.5 -> 42, 43.5 -> 44), as the host expects of
// every rounded command parameter. Values outside int32 saturate; NaN gives 0.
int32_t RoundHalfEven(double value);

// The generic laser alarm and the diode-current-set time-out alarm.
inline constexpr int32_t kLaserAlarmId = 1;
inline constexpr int32_t kDiodeSetAlarmId = 511;

// The host's definition record of a laser alarm (its first word is the alarm kind the host shows for lasers).
inline nchost::TNcAlarmDef LaserAlarmDefinition() {
  nchost::TNcAlarmDef def;
  def.Words[0] = 72;
  return def;
}

// Lasers are built in steps so that every step may use virtual operations: the C++ constructor only stores the
// parameters and the IO extension; the factory then calls Create() and AfterConstruction(), and before freeing
// the laser (or when the library drops it while the host still holds it) calls Shutdown(). Use MakeLaser
// (LaserLifetime.h), which does all of this.
//
// Shutting down is the base class's job, in one place, so that no model can forget a part of it:
//   1. BeforeDestruction switches emission and the laser off (models extend it to reach a safe state);
//   2. every part the laser owns is stopped, in the reverse order of registration (see Owns);
//   3. every port opened through Ports() is closed, and the IO extension is detached (see TLaserIOGate).
// From then on whatever the host still holds of the laser answers from state: no thread of the laser runs, no
// byte reaches a link and no output is written, whatever the model's own code does.
//
// How a model registers what it owns, in its constructor or Create():
//   FDriver = std::make_unique<TMyDriver>(FParams, Ports());   // its transports come from Ports()
//   Owns("driver", [this] { FDriver->Stop(); });               // stops the driver's threads
//   Owns(FPollThread);                                          // a TLaserThread member: stopped, never restarted
// A part registered after what it uses stops first. A model reaches the IO extension only through IO() or
// GetCtrlExtIO() and opens its ports only through Ports(); nothing else is needed to go silent.
//
// Commands come from the host's control thread, queries from its display thread and state from the laser's own
// threads, so every field written after construction is atomic.
class TNcLaser : public nchost::TNcDevice, public nchost::INcLaser30 {
 public:
  TNcLaser(const TLaserParams& params, std::shared_ptr<nchost::ICtrlExtIO> io);
  ~TNcLaser() override;

  // ---- operations in the host's slot order ----
  std::string GetDeviceDesc() override;
  bool GetIsBusy() override;
  // The host device's named command; the base knows none.
  void ExecCmd(const std::string& name, double value) override;
  // Second construction step: chooses the PWM channel and clears the commanded state.
  virtual void Create();
  int32_t ExecuteCmd(int32_t cmd, double param) override;
  void Stop(int32_t mode) override;
  std::string GetAlarmIDPrefix() override;
  void ResetAlarm(int32_t id) override;
  void RegisterAlarms(nchost::INcAlarmTable20& table) override;
  std::string GetAlarmDesc(int32_t id) override;
  bool UpdateAlarms(nchost::INcAlarmReport20& report) override;
  double GetDiodeCurrent() override;
  int32_t GetLaserMode() override;
  bool GetIsAimingOn() override;
  bool GetIsEmissionOn() override;
  bool GetIsLaserOn() override = 0;
  bool GetIsCmdLaserOn() override;
  int32_t GetPwmFreq() override;
  double GetPwmRatio() override;
  void DynamicPower(double value) override;
  void EmissionOn() override;
  void EmissionOff() override;
  void LaserOn() override;
  void LaserOnPrepare() override;
  void LaserOff() override;
  void PowerOn() override;
  void PowerOff() override;
  void SetAimingOn(bool on) override;
  void SetDiodeCurrent(double value) override;
  void SetLaserMode(int32_t mode) override;
  void SetPwmFreq(int32_t hz) override;
  void SetPwmRatio(double ratio) override;
  void SetDiodeCurrentByDA(double value) override;
  std::vector<uint8_t> GetLaserRtData(int32_t kind) override;
  int32_t ExecuteDebugCmd(int32_t cmd, double param) override;
  bool UpdateLaserParams(const nchost::ISuperObject& json) override;
  void SetDiodeCurrentWaitBusy(double value) override;

  // Third construction step: the PWM output starts disabled at the configured frequency and ratio.
  void AfterConstruction() override;
  // Switches emission and the laser off; a laser is always switched off before it is freed.
  void BeforeDestruction() override;

  // Switches the laser off, stops what it owns and closes its ports and IO (the steps above), once: later calls do
  // nothing. Never throws. Called by the deleter of MakeLaser and by the library when it drops its laser while the
  // host may still hold it.
  void Shutdown() noexcept;
  bool IsShutDown() const { return FShutDown.load(); }

  // ---- non-virtual members ----
  // The IO extension behind the laser's gate; a laser created without one gets a simulated board on first use.
  std::shared_ptr<nchost::ICtrlExtIO> GetCtrlExtIO() { return FIO; }
  bool GetPwmEn();
  void SetPwmEn(bool on);
  double GetCmdDiodeCurrent() const { return FCmdDiodeCurrent.load(); }
  double GetCmdPwmRatio() const { return FPwmRatio.load(); }
  int32_t GetCmdPwmFreq() const { return FPwmFreq.load(); }
  // The DA output of the diode current: the low byte of the configured DA port.
  uint8_t GetCurrentDAPort() const;
  // The analogue voltage of a diode current given as a fraction of full scale, clamped to 0..MaxVoltage.
  double CurrentToVoltage(double fraction) const;
  uint8_t PwmPort() const { return FPwmPort; }
  const TLaserParams& Params() const { return FParams; }

 protected:
  // Registers a part the laser owns; Shutdown calls `stop` once, after BeforeDestruction, in the reverse order of
  // registration. `stop` must stop and join the part's threads; an exception is reported, never passed on.
  void Owns(std::string name, std::function<void()> stop);
  // A thread the laser owns: Shutdown closes it (stopped and joined, and never started again).
  void Owns(TLaserThread& thread);
  // Where the laser's drivers open their communication ports; Shutdown closes them after stopping the parts.
  TLaserPorts& Ports() { return FPorts; }

  // Older models stop their threads here; Shutdown still calls it once, before the registered parts. New code
  // registers its parts with Owns instead.
  virtual void StopThreads() {}

  // Runs one step of switching off or shutting down; an exception is reported, never passed on.
  static void GuardStep(const char* step, const std::function<void()>& action) noexcept;

  // The IO extension without taking a reference.
  nchost::ICtrlExtIO& IO() { return *FIO; }
  bool HasGivenCtrlExtIO() const { return FHasGivenIO; }
  bool IsPreparing() const { return FPreparing.load(); }
  void SetBusy(bool busy) { FBusy.store(busy); }
  // Consumes the alarm-reset request raised by ResetAlarm(511).
  bool TakeAlarmResetRequest() { return FAlarmResetRequest.exchange(false); }
  bool AlarmResetRequested() const { return FAlarmResetRequest.load(); }

  std::atomic<bool> FPreparing{false};
  std::atomic<int32_t> FPwmFreq{0};
  std::atomic<double> FPwmRatio{0.0};
  TLaserParams FParams;
  uint8_t FPwmPort = 1;  // chosen by Create, before any other thread sees the laser
  std::atomic<bool> FEmissionOn{false};
  std::atomic<bool> FLaserOn{false};
  std::atomic<double> FCmdDiodeCurrent{0.0};
  std::atomic<bool> FBusy{false};
  std::atomic<bool> FAlarmResetRequest{false};

 private:
  uint8_t FindPwmPort();

  struct TOwnedPart {
    std::string Name;
    std::function<void()> Stop;
  };

  const std::shared_ptr<TLaserIOGate> FIO;
  const bool FHasGivenIO;
  std::atomic<bool> FShutDown{false};
  std::mutex FPartsLock;
  std::vector<TOwnedPart> FParts;  // guarded by FPartsLock
  bool FPartsStopped = false;      // guarded by FPartsLock
  TLaserPorts FPorts;
};

}  // namespace devlaser
