// A simulated IO extension with state: outputs read back as written, inputs and AD values are set by a program
// or a test, PWM and DA settings are stored. Every write is recorded with its time, and can be printed as a log
// line ("SetOutputbit: 5, True", "SetPwmFreq: 1, 5000.000"). Thread-safe.
#pragma once

#include <array>
#include <bitset>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host/CtrlExtIO.h"
#include "refhost/MessageSink.h"

namespace refhost {

using TPortSet = std::bitset<256>;

// Which ports of each kind exist. Output, input and PWM port 0 never exists: 0 means "not used" there. DA and AD
// ports are numbered from 0 at the IO extension (configuration DA port 1200 is DA 0), so DA 0 and AD 0 can exist.
struct TSimIOPorts {
  TPortSet Outputs, Inputs, Pwm, DA, AD;

  // Ports first..last (clamped to 0..255).
  static TPortSet Range(int first, int last);
  // Outputs 1..64, inputs 1..64, PWM 1..4, DA 0..7, AD 0..7.
  static TSimIOPorts Default();
};

enum class TIOOp { SetOutputbit, CloseAllOutports, SetPwmEn, SetPwmFreq, SetPwmRatio, SetDAValue };
const char* IOOpName(TIOOp op);

// One write to the extension, also one to a port that does not exist (which changes nothing).
struct TIOWrite {
  std::chrono::microseconds Time{};  // since the extension was created
  TIOOp Op = TIOOp::SetOutputbit;
  uint8_t Port = 0;    // 0 for CloseAllOutports
  double Value = 0.0;  // booleans as 1 and 0
  // The log line: "SetOutputbit: 5, True", "SetPwmRatio: 1, 0.500", "CloseAllOutports" (invariant decimal point).
  std::string Line() const;
};

struct TSimIOState {
  TPortSet Outputs, Inputs, PwmEn;
  std::array<double, 256> PwmFreq{}, PwmRatio{}, DA{}, AD{};
};

class TSimCtrlExtIO : public nchost::ICtrlExtIO {
 public:
  explicit TSimCtrlExtIO(TSimIOPorts ports = TSimIOPorts::Default());

  // Prints every write as an information log line of `category` to `sink` (null: stop printing).
  void SetPrintSink(std::shared_ptr<TMessageSink> sink, std::string category = "IO");

  // The outside world: inputs and AD values (only ports that exist take a value).
  void SetInput(uint8_t port, bool value);
  void SetADValue(uint8_t port, double value);

  const TSimIOPorts& Ports() const { return FPorts; }
  TSimIOState State() const;
  std::vector<TIOWrite> Writes() const;
  void ClearWrites();

  // Waits until `holds` is true of the state (checked at once and after every change); false on time-out.
  // `holds` runs under the extension's lock and must not call back into it.
  bool WaitUntil(const std::function<bool(const TSimIOState&)>& holds, std::chrono::milliseconds timeout) const;
  // Waits until a recorded write (also one recorded before the call) matches; false on time-out.
  bool WaitForWrite(const std::function<bool(const TIOWrite&)>& matches, std::chrono::milliseconds timeout) const;

  // ICtrlExtIO.
  bool GetOutPortExist(uint8_t port) override { return FPorts.Outputs.test(port); }
  bool GetOutputBit(uint8_t port) override;
  void SetOutputbit(uint8_t port, bool value) override;
  void CloseAllOutports() override;
  bool GetInPortExist(uint8_t port) override { return FPorts.Inputs.test(port); }
  bool GetInputBit(uint8_t port) override;
  bool GetPwmPortExist(uint8_t port) override { return FPorts.Pwm.test(port); }
  bool GetPwmEn(uint8_t port) override;
  double GetPwmFreq(uint8_t port) override;
  double GetPwmRatio(uint8_t port) override;
  void SetPwmEn(uint8_t port, bool value) override;
  void SetPwmFreq(uint8_t port, double value) override;
  void SetPwmRatio(uint8_t port, double value) override;
  bool GetDAPortExist(uint8_t port) override { return FPorts.DA.test(port); }
  double GetDAValue(uint8_t port) override;
  void SetDAValue(uint8_t port, double value) override;
  bool GetADPortExist(uint8_t port) override { return FPorts.AD.test(port); }
  double GetADValue(uint8_t port) override;

 private:
  // Records a write and wakes waiters; `apply` changes the state when the port exists. Called without the lock.
  void RecordWrite(TIOOp op, uint8_t port, double value, const std::function<void(TSimIOState&)>& apply);

  const TSimIOPorts FPorts;
  const std::chrono::steady_clock::time_point FCreated;
  mutable std::mutex FMutex;
  mutable std::condition_variable FChanged;
  TSimIOState FState;
  std::vector<TIOWrite> FWrites;
  std::shared_ptr<TMessageSink> FPrintSink;
  std::string FPrintCategory;
};

}  // namespace refhost
