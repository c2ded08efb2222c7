// The laser's door to the controller's IO extension. It passes every call through until Detach(); from then on
// nothing reaches the IO extension any more and reads answer from what the laser itself last wrote (outputs,
// PWM, DA), so that a destroyed laser that the host still holds reports its last commanded state without touching
// the controller's outputs. Detach waits for calls already under way; IO calls never block for long.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <shared_mutex>

#include "host/CtrlExtIO.h"

namespace devlaser {

class TLaserIOGate final : public nchost::ICtrlExtIO {
 public:
  // Null `target`: a simulated board, created on first use.
  explicit TLaserIOGate(std::shared_ptr<nchost::ICtrlExtIO> target);

  void Detach() noexcept;
  bool Detached() const { return FDetached.load(); }
  // The IO extension behind the gate (the simulated board once created); null before first use without one.
  std::shared_ptr<nchost::ICtrlExtIO> Target();

  bool GetOutPortExist(uint8_t port) override;
  bool GetOutputBit(uint8_t port) override;
  void SetOutputbit(uint8_t port, bool value) override;
  void CloseAllOutports() override;
  bool GetInPortExist(uint8_t port) override;
  bool GetInputBit(uint8_t port) override;
  bool GetPwmPortExist(uint8_t port) override;
  bool GetPwmEn(uint8_t port) override;
  double GetPwmFreq(uint8_t port) override;
  double GetPwmRatio(uint8_t port) override;
  void SetPwmEn(uint8_t port, bool value) override;
  void SetPwmFreq(uint8_t port, double value) override;
  void SetPwmRatio(uint8_t port, double value) override;
  bool GetDAPortExist(uint8_t port) override;
  double GetDAValue(uint8_t port) override;
  void SetDAValue(uint8_t port, double value) override;
  bool GetADPortExist(uint8_t port) override;
  double GetADValue(uint8_t port) override;

 private:
  // What the laser wrote, kept while attached so that reads after Detach answer with it.
  struct TWritten {
    std::map<uint8_t, bool> Outputs;
    std::map<uint8_t, bool> PwmEn;
    std::map<uint8_t, double> PwmFreq;
    std::map<uint8_t, double> PwmRatio;
    std::map<uint8_t, double> DA;
  };

  nchost::ICtrlExtIO& TargetLocked();
  // Runs `call` on the IO extension while attached, or `detached` on what was written.
  template <class R, class F, class G>
  R Read(F&& call, G&& detached);
  template <class F, class G>
  void Write(F&& call, G&& record);

  std::atomic<bool> FDetached{false};
  std::shared_mutex FLock;  // shared by calls, taken alone by Detach
  std::shared_ptr<nchost::ICtrlExtIO> FTarget;
  const bool FHasTarget;
  std::once_flag FSimOnce;
  std::mutex FWrittenLock;
  TWritten FWritten;
};

}  // namespace devlaser
