// The interface through which the host drives a laser source.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "HostDefs.h"
#include "NcAlarm.h"
#include "SuperObject.h"

namespace nchost {

// Calls come from the host's control thread (commands) and its display thread (queries). Queries never wait for
// a communication link.
class NCHOST_API INcLaser30 {
 public:
  virtual ~INcLaser30() = default;

  virtual std::string GetDeviceDesc() = 0;
  virtual bool GetIsBusy() = 0;
  // The device's named command (see TNcDevice::ExecCmd), passed through to the laser.
  virtual void ExecCmd(const std::string& name, double value) = 0;
  virtual int32_t ExecuteCmd(int32_t cmd, double param) = 0;
  virtual void Stop(int32_t mode) = 0;
  virtual std::string GetAlarmIDPrefix() = 0;
  virtual void ResetAlarm(int32_t id) = 0;
  virtual void RegisterAlarms(INcAlarmTable20& table) = 0;
  virtual std::string GetAlarmDesc(int32_t id) = 0;
  virtual bool UpdateAlarms(INcAlarmReport20& report) = 0;
  virtual double GetDiodeCurrent() = 0;
  virtual int32_t GetLaserMode() = 0;
  virtual bool GetIsAimingOn() = 0;
  virtual bool GetIsEmissionOn() = 0;
  virtual bool GetIsLaserOn() = 0;
  virtual bool GetIsCmdLaserOn() = 0;
  virtual int32_t GetPwmFreq() = 0;
  virtual double GetPwmRatio() = 0;
  virtual void DynamicPower(double value) = 0;
  virtual void EmissionOn() = 0;
  virtual void EmissionOff() = 0;
  virtual void LaserOn() = 0;
  virtual void LaserOnPrepare() = 0;
  virtual void LaserOff() = 0;
  virtual void PowerOn() = 0;
  virtual void PowerOff() = 0;
  virtual void SetAimingOn(bool on) = 0;
  virtual void SetDiodeCurrent(double value) = 0;
  virtual void SetLaserMode(int32_t mode) = 0;
  virtual void SetPwmFreq(int32_t hz) = 0;
  virtual void SetPwmRatio(double ratio) = 0;
  virtual void SetDiodeCurrentByDA(double value) = 0;
  virtual std::vector<uint8_t> GetLaserRtData(int32_t kind) = 0;
  virtual int32_t ExecuteDebugCmd(int32_t cmd, double param) = 0;
  virtual bool UpdateLaserParams(const ISuperObject& json) = 0;
  virtual void SetDiodeCurrentWaitBusy(double value) = 0;
};

}  // namespace nchost
