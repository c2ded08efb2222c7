// Services every laser and driver uses: the library logger, the debug-mode switch with its monitor-thread filter,
// the simulated IO extension board and the connection-check throttle.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <thread>

#include "host/CtrlExtIO.h"
#include "host/DelayRec.h"
#include "host/Logger.h"

namespace devlaser {

// The library's debug trace, through a host logger of category "LaserLogger".
class TCSLogger {
 public:
  static constexpr const char* kCategory = "LaserLogger";

  // Creates the host logger; it is enabled only when the host's own logger exists and is enabled.
  TCSLogger();
  ~TCSLogger();

  // Sends `msg` as an error when `condition` is false.
  void Check(bool condition, const std::string& msg);
  // Sends `msg` at the level of the host message type: 2 message, 5 warning, 7 error, any other plain.
  void ShowMsg(const std::string& msg, int msgType);
  bool Enabled() const;
  void SetEnabled(bool enabled);

 private:
  std::unique_ptr<nchost::TCodeSiteLogger> FLogger;
};

// The process-wide library logger (created at library load), or null.
TCSLogger* CSLogger();
void SetCSLogger(TCSLogger* logger);
// Sends through the library logger when there is one.
void CSLog(const std::string& msg, int msgType);

void SetLaserDebugMode(bool on);
// The thread whose traces are suppressed: the polling monitor thread must not flood the log.
void SetLaserMonThreadID(std::thread::id id);
// True when debug mode is on and the calling thread is not the registered monitor thread.
bool GLaserDebugMode();

// Stands in for the controller's IO when a laser has none: holds no state, reads every valid output as set and
// everything else as zero, and logs every write.
class TSimIOExtBoard : public nchost::ICtrlExtIO {
 public:
  bool IsPortVaild(uint8_t port) const { return port != 0; }

  bool GetOutPortExist(uint8_t port) override { return IsPortVaild(port); }
  bool GetOutputBit(uint8_t port) override { return IsPortVaild(port); }
  void SetOutputbit(uint8_t port, bool value) override;
  void CloseAllOutports() override;
  bool GetInPortExist(uint8_t port) override { return IsPortVaild(port); }
  bool GetInputBit(uint8_t) override { return false; }
  bool GetPwmPortExist(uint8_t port) override { return IsPortVaild(port); }
  bool GetPwmEn(uint8_t) override { return false; }
  double GetPwmFreq(uint8_t) override { return 0.0; }
  double GetPwmRatio(uint8_t) override { return 0.0; }
  void SetPwmEn(uint8_t port, bool value) override;
  void SetPwmFreq(uint8_t port, double value) override;
  void SetPwmRatio(uint8_t port, double value) override;
  bool GetDAPortExist(uint8_t port) override { return IsPortVaild(port); }
  double GetDAValue(uint8_t) override { return 0.0; }
  void SetDAValue(uint8_t port, double value) override;
  bool GetADPortExist(uint8_t port) override { return IsPortVaild(port); }
  double GetADValue(uint8_t) override { return 0.0; }
};

// The host's text for a port (its number when there is no host).
std::string PortText(uint8_t port);

// Shows a lost connection to the operator at most once per interval; a good check re-arms it at once.
struct TLaserConnCheck {
  int32_t IntervalMinutes = 0;
  nchost::TDelayRec Timer;

  void Initialize(int32_t intervalMinutes);
  // Returns `connected` unchanged.
  bool CheckConnection(bool connected);
};

}  // namespace devlaser
