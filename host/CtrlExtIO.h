// The controller's IO extension: digital outputs and inputs, PWM channels, DA (0-10 V) and AD ports.
#pragma once

#include <cstdint>
#include <string_view>

#include "HostDefs.h"

namespace nchost {

// Implementations are called from the host's control thread and from laser threads at the same time, so they
// must be thread-safe.
class NCHOST_API ICtrlExtIO : public IInterface {
 public:
  static constexpr std::string_view kIID = "{0E7DBA43-083F-430A-9234-7E2BF42FADE0}";

  void* QueryInterface(std::string_view iid) override { return iid == kIID ? this : nullptr; }

  virtual bool GetOutPortExist(uint8_t port) = 0;
  virtual bool GetOutputBit(uint8_t port) = 0;
  virtual void SetOutputbit(uint8_t port, bool value) = 0;
  virtual void CloseAllOutports() = 0;
  virtual bool GetInPortExist(uint8_t port) = 0;
  virtual bool GetInputBit(uint8_t port) = 0;
  virtual bool GetPwmPortExist(uint8_t port) = 0;
  virtual bool GetPwmEn(uint8_t port) = 0;
  virtual double GetPwmFreq(uint8_t port) = 0;
  virtual double GetPwmRatio(uint8_t port) = 0;
  virtual void SetPwmEn(uint8_t port, bool value) = 0;
  virtual void SetPwmFreq(uint8_t port, double value) = 0;
  virtual void SetPwmRatio(uint8_t port, double value) = 0;
  virtual bool GetDAPortExist(uint8_t port) = 0;
  virtual double GetDAValue(uint8_t port) = 0;
  virtual void SetDAValue(uint8_t port, double value) = 0;
  virtual bool GetADPortExist(uint8_t port) = 0;
  virtual double GetADValue(uint8_t port) = 0;
};

// The host's PWM control extension. Its first operation emits for an exact time on a PWM channel, timed by the
// controller's hardware rather than by a thread.
class NCHOST_API IPwmCtrlExt : public IInterface {
 public:
  virtual void TimedEmission(uint8_t pwmPort, int32_t lengthMs, int32_t count) = 0;
};

}  // namespace nchost
