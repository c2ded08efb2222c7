#include "core/DefaultLaser.h"

#include <chrono>

namespace devlaser {

namespace {
// How long switching emission off waits for a handshake's finished-signal to take it away.
constexpr auto kEmissionOffWait = std::chrono::milliseconds(100);
}  // namespace

TDefaultLaser::TDefaultLaser(const TLaserParams& params, std::shared_ptr<nchost::ICtrlExtIO> io)
    : TFiberLaser(params, std::move(io)) {
  Owns("emission handshake", [this] { StopSequence(); });
}

TDefaultLaser::~TDefaultLaser() { StopSequence(); }

int32_t TDefaultLaser::GetReadyPort() const { return FParams.CfgOther.ShutterReady; }
int32_t TDefaultLaser::GetReadyDelay() const { return FParams.CfgOther.ShutterReadyDelay; }

bool TDefaultLaser::SequenceRunning() const {
  std::lock_guard lock(FSequenceLock);
  return FSequence && FSequence->Running();
}

void TDefaultLaser::StopSequence() {
  std::unique_ptr<TLaserIOThread> sequence;
  {
    std::lock_guard lock(FSequenceLock);
    sequence = std::move(FSequence);
  }
  if (sequence) sequence->Stop();
}

void TDefaultLaser::BeforeDestruction() {
  // A handshake left running would switch the outputs back on after they were switched off.
  StopSequence();
  TFiberLaser::BeforeDestruction();
}

void TDefaultLaser::EmissionOn() {
  TFiberLaser::EmissionOn();
  // A laser the library has already shut down (the host may still hold it) starts no thread and opens no gate.
  if (IsShutDown()) return;
  // A handshake still running stands for this request too.
  if (!FPowerOnLockSemaphore->TryAcquire()) return;
  auto sequence = std::make_unique<TLaserIOThread>(FPowerOnLockSemaphore);
  sequence->SetCtrlExtIO(GetCtrlExtIO());
  sequence->SetFinishSemaphore(FPowerOnSemaphore);
  if (GetReadyPort() > 0) {
    sequence->AddOutport(GetReadyPort(), true);
    sequence->AddDelay(GetReadyDelay());
  }
  if (GateChannel() > 0) sequence->AddOutport(GateChannel(), true);
  std::unique_ptr<TLaserIOThread> finished;
  {
    std::lock_guard lock(FSequenceLock);
    finished = std::move(FSequence);  // it gave the lock back, so it has ended or is about to
    FSequence = std::move(sequence);
    FSequence->Start();
  }
  if (finished) finished->Join();
}

bool TDefaultLaser::GetIsEmissionOn() {
  if (!UsesHandshakePorts()) return TFiberLaser::GetIsEmissionOn();
  if (!FPowerOnSemaphore->TryAcquire()) return false;  // no handshake has finished since emission went off
  bool on =
      GateChannel() >= 1 ? IO().GetOutputBit(static_cast<uint8_t>(GateChannel())) : TFiberLaser::GetIsEmissionOn();
  FPowerOnSemaphore->Release();  // a query leaves the signal as it found it
  return on;
}

void TDefaultLaser::EmissionOff() {
  TFiberLaser::EmissionOff();
  auto& io = IO();
  // A running handshake is not stopped: the laser's own sequence completes and then reports emission on again.
  for (int32_t port : {GetReadyPort(), GateChannel()})
    if (port > 0 && io.GetOutPortExist(static_cast<uint8_t>(port))) io.SetOutputbit(static_cast<uint8_t>(port), false);
  if (!UsesHandshakePorts()) return;
  // Takes the finished-signal away, so that emission reads off until the next handshake ends. A handshake about to
  // finish, or a query that holds the signal for a moment, gets a little time. A laser being freed has had its
  // handshake stopped, so nothing more can come.
  if (IsShutDown())
    FPowerOnSemaphore->TryAcquire();
  else
    FPowerOnSemaphore->AcquireFor(kEmissionOffWait);
}

}  // namespace devlaser
