#include "core/LaserIOThread.h"

#include <algorithm>

namespace devlaser {

namespace {
// Releases the terminate semaphore when the run ends, however it ends.
class TReleaseOnExit {
 public:
  explicit TReleaseOnExit(TLaserSemaphore* semaphore) : FSemaphore(semaphore) {}
  ~TReleaseOnExit() {
    if (FSemaphore) FSemaphore->Release();
  }
  TReleaseOnExit(const TReleaseOnExit&) = delete;
  TReleaseOnExit& operator=(const TReleaseOnExit&) = delete;

 private:
  TLaserSemaphore* FSemaphore;
};
}  // namespace

TLaserIOThread::TLaserIOThread(std::shared_ptr<TLaserSemaphore> terminateSemaphore)
    : FTerminateSemaphore(std::move(terminateSemaphore)) {}

TLaserIOThread::~TLaserIOThread() { FThread.Stop(); }

void TLaserIOThread::AddDelay(int32_t ms) { FSteps.push_back({stDelay, false, 0, ms}); }
void TLaserIOThread::AddOutport(int32_t port, bool value) { FSteps.push_back({stOutport, value, port, 0}); }
void TLaserIOThread::AddInport(int32_t port, bool value, int32_t timeOut) {
  FSteps.push_back({stInport, value, port, timeOut});
}

void TLaserIOThread::SetFinishSemaphore(std::shared_ptr<TLaserSemaphore> finishSemaphore) {
  FFinishSemaphore = std::move(finishSemaphore);
}

void TLaserIOThread::SetCtrlExtIO(std::shared_ptr<nchost::ICtrlExtIO> io) { FCtrlExtIO = std::move(io); }

bool TLaserIOThread::Start() {
  if (FStarted) return false;
  FStarted = true;
  try {
    FThread.Start([this](TLaserThread& thread) {
      TReleaseOnExit release(FTerminateSemaphore.get());
      Process(thread);
      FCtrlExtIO.reset();  // the sequence is done with the controller's IO
    });
    return true;
  } catch (...) {
    // No thread: the run ended before it began, and the owner still learns of its end.
    if (FTerminateSemaphore) FTerminateSemaphore->Release();
    return false;
  }
}

void TLaserIOThread::Terminate() { FThread.Terminate(); }
void TLaserIOThread::Stop() { FThread.Stop(); }
void TLaserIOThread::Join() { FThread.Join(); }
bool TLaserIOThread::Running() const { return FThread.Running(); }

void TLaserIOThread::Process(TLaserThread& thread) {
  for (const TNcIOStep& step : FSteps) {
    if (thread.Terminated()) return;  // a stopped run never reports itself finished
    switch (step.StepType) {
      case stDelay:
        if (step.Delay < 0 || step.Delay > kMaxDelayMs) continue;  // out of range: skipped, no pause either
        // Sleeps until the deadline on the steady clock; a stop ends the wait at once.
        if (!thread.SleepA(step.Delay)) return;
        break;
      case stOutport:
        if (FCtrlExtIO) FCtrlExtIO->SetOutputbit(static_cast<uint8_t>(step.Port), step.PortStatus);
        break;
      case stInport:
        WaitForInput(thread, step);
        break;
    }
    thread.SleepA(kSettleMs);
  }
  if (thread.Terminated()) return;
  if (FFinishSemaphore) FFinishSemaphore->Release();
}

void TLaserIOThread::WaitForInput(TLaserThread& thread, const TNcIOStep& step) {
  // An input that never reaches the wanted state ends the step at its time-out; the sequence goes on.
  int32_t timeOut = step.Delay < 0 || step.Delay > kMaxDelayMs ? kMaxDelayMs : step.Delay;
  auto deadline = TLaserThread::Clock::now() + std::chrono::milliseconds(timeOut);
  auto port = static_cast<uint8_t>(step.Port);
  // Reads on a fixed grid of the steady clock, so that the time a read takes does not stretch the period.
  auto nextRead = TLaserThread::Clock::now();
  while (FCtrlExtIO && FCtrlExtIO->GetInputBit(port) != step.PortStatus) {
    const auto now = TLaserThread::Clock::now();
    if (now >= deadline) return;
    nextRead += kInputPollInterval;
    if (nextRead < now) nextRead = now;  // behind after a long stall: read again at once, don't catch up
    if (!thread.SleepUntil(std::min(nextRead, deadline))) return;
  }
}

}  // namespace devlaser
