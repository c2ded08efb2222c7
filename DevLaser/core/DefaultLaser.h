// The generic hard-wired fiber laser, and the laser the library falls back to for an unknown model. Switching
// emission on is a timed handshake on the IO extension, run in the background: the shutter-ready output, a wait,
// then the emission gate output. Emission reads as on only once that handshake has finished.
#pragma once

#include <memory>
#include <mutex>

#include "core/FiberLaser.h"
#include "core/LaserIOThread.h"
#include "core/LaserSemaphore.h"

namespace devlaser {

class TDefaultLaser : public TFiberLaser {
 public:
  TDefaultLaser(const TLaserParams& params, std::shared_ptr<nchost::ICtrlExtIO> io);
  // Stops and joins a handshake still running.
  ~TDefaultLaser() override;

  void BeforeDestruction() override;
  void EmissionOn() override;
  void EmissionOff() override;
  bool GetIsEmissionOn() override;

  // The shutter-ready output (0 or below: none) and how long the laser needs after it before the gate opens.
  int32_t GetReadyPort() const;
  int32_t GetReadyDelay() const;

  // True while an emission-on handshake runs.
  bool SequenceRunning() const;

 private:
  void StopSequence();
  int32_t GateChannel() const { return FParams.DefParams.CtrlPort; }
  bool UsesHandshakePorts() const { return GetReadyPort() > 0 || GateChannel() > 0; }

  // Signalled when a handshake has finished; consumed by EmissionOff.
  const std::shared_ptr<TLaserSemaphore> FPowerOnSemaphore = std::make_shared<TLaserSemaphore>(0, 1);
  // Held while a handshake runs, so that at most one runs; its thread gives it back when it ends.
  const std::shared_ptr<TLaserSemaphore> FPowerOnLockSemaphore = std::make_shared<TLaserSemaphore>(1, 1);
  mutable std::mutex FSequenceLock;
  std::unique_ptr<TLaserIOThread> FSequence;  // the last handshake started, finished or not
};

}  // namespace devlaser
