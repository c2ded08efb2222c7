#include "serial/SerialCmdThread.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <thread>

#include "frame/HostServices.h"
#include "frame/LaserComm.h"
#include "frame/LaserStrs.h"
#include "serial/SerialText.h"

namespace devlaser {
namespace {
// Log lines of the serial lasers go to the host's application log as information.
void LogLine(const std::string& msg) { LogMsg(msg, nchost::msgtype::kInformation); }
}  // namespace

// The state of one run of the thread.
class TSerialCmdThread::TRun final : public TSerialRun {
 public:
  TRun(TSerialCmdThread& owner, TLaserThread& thread) : FOwner(owner), FThread(thread) {}
  void ShowConnectedOnce() override {
    if (FConnectedShown) return;
    FConnectedShown = true;
    ShowMsg(SLaserConnectedOk, 0);
  }
  void ReportFault(const std::string& prefix, const std::string& what) override {
    FOwner.ReportFault(FThread, prefix, what);
  }

 private:
  TSerialCmdThread& FOwner;
  TLaserThread& FThread;
  bool FConnectedShown = false;
};

TSerialCmdThread::TSerialCmdThread(TSerialThreadOptions options, std::unique_ptr<TSerialCmdSet> cmdSet,
                                   std::unique_ptr<nchost::TCommCtrl> port)
    : FOptions(std::move(options)), FCmdSet(std::move(cmdSet)), FPort(std::move(port)), FThread(FOptions.Name) {
  if (FPort) {
    FPort->SetSettings(FOptions.CommSettings);
    FPort->SetPort(FOptions.CommPort);
  }
  FThread.Start([this](TLaserThread& thread) { Execute(thread); });
}

TSerialCmdThread::~TSerialCmdThread() { Stop(); }

bool TSerialCmdThread::LockAddCmd(std::span<const uint8_t> bytes) {
  TCommCmd cmd;
  if (!cmd.Assign(bytes)) return false;
  {
    std::lock_guard lock(FQueueLock);
    if (!FAccepting) return false;
    FQueue.push_back(cmd);
  }
  FThread.Wake();
  return true;
}

void TSerialCmdThread::SetRepeatedValue(uint8_t value) {
  {
    std::lock_guard lock(FQueueLock);
    if (!FAccepting) return;
    FRepeatValue = value;
    FRepeatLeft = FOptions.RepeatCount;
  }
  FThread.Wake();
}

size_t TSerialCmdThread::PendingCount() const {
  std::lock_guard lock(FQueueLock);
  return FQueue.size();
}

bool TSerialCmdThread::Stopped() const { return FStopped.load(); }

void TSerialCmdThread::Stop() noexcept {
  std::lock_guard stopLock(FStopLock);
  if (FStopped.load()) return;
  std::deque<TCommCmd> last;
  {
    std::lock_guard lock(FQueueLock);
    FAccepting = false;
  }
  FThread.Stop();
  {
    std::lock_guard lock(FQueueLock);
    const size_t skip = FQueue.size() > kStopFlushLimit ? FQueue.size() - kStopFlushLimit : 0;
    last.assign(FQueue.begin() + static_cast<std::ptrdiff_t>(skip), FQueue.end());
    FQueue.clear();
    FRepeatLeft = 0;
  }
  try {
    if (FPort && FPort->GetActive()) {
      bool first = true;
      for (const TCommCmd& cmd : last) {
        if (!first) std::this_thread::sleep_for(std::chrono::milliseconds(FOptions.Pacing.AfterWriteMs));
        first = false;
        WriteCmd(cmd);
      }
    }
    if (FPort) FPort->SetActive(false);
  } catch (const std::exception& e) {
    LogMsg(FOptions.FaultPrefix + e.what(), nchost::msgtype::kLaserLog);
  } catch (...) {
    LogMsg(FOptions.FaultPrefix + "unknown", nchost::msgtype::kLaserLog);
  }
  FPort.reset();
  FStopped.store(true);
}

void TSerialCmdThread::Execute(TLaserThread& thread) {
  if (GLaserDebugMode() && !FOptions.StartedText.empty()) LogLine(FOptions.StartedText);
  TRun run(*this, thread);
  while (!thread.Terminated()) {
    try {
      if (!Cycle(thread, run)) break;
    } catch (const std::exception& e) {
      ReportFault(thread, FOptions.FaultPrefix, e.what());
    } catch (...) {
      ReportFault(thread, FOptions.FaultPrefix, "unknown exception");
    }
  }
}

bool TSerialCmdThread::Cycle(TLaserThread& thread, TRun& run) {
  const TSerialPacing& pacing = FOptions.Pacing;
  if (!FPort || !FPort->SetActive(true)) {
    // Commands queued for a line that was up and is lost were asked of a laser that could not hear them: carried
    // out on reconnect, an emission-on asked minutes ago would switch the laser on by itself. They are dropped, as
    // every other driver drops what it cannot send; the latest setting still goes out. A port that has not opened
    // yet (the laser was just created) keeps its queue.
    if (FLineWasUp) {
      std::lock_guard lock(FQueueLock);
      FQueue.clear();
    }
    return thread.SleepA(pacing.ClosedMs);
  }
  FLineWasUp = true;

  // Everything that has arrived is consumed before anything is sent; replies are not paired with commands.
  bool traffic = false;
  for (;;) {
    const std::string chunk = FPort->Read(FReceive.size());
    if (chunk.empty()) break;
    const size_t count = std::min(chunk.size(), FReceive.size());
    std::copy_n(chunk.begin(), count, FReceive.begin());
    traffic = true;
    FCmdSet->OnReceived(FReceive, count, run);
    if (!thread.SleepA(pacing.AfterChunkMs)) return false;
  }

  // The queue lock is not held across the write and its pause: a caller never waits for the line.
  TCommCmd cmd;
  if (TakeNext(cmd)) {
    traffic = true;
    if (WriteCmd(cmd) && !thread.SleepA(pacing.AfterWriteMs)) return false;
  }
  return thread.WaitForWake(IdleWaitMs(traffic));
}

int32_t TSerialCmdThread::IdleWaitMs(bool traffic) {
  const TSerialPacing& pacing = FOptions.Pacing;
  if (traffic || FQuietWaitMs < pacing.IdleMs) {
    FQuietWaitMs = pacing.IdleMs;
  } else {
    FQuietWaitMs = std::min(std::max(FQuietWaitMs * 2, pacing.IdleMs), std::max(pacing.QuietMaxMs, pacing.IdleMs));
  }
  return FQuietWaitMs;
}

bool TSerialCmdThread::TakeNext(TCommCmd& cmd) {
  std::lock_guard lock(FQueueLock);
  if (!FQueue.empty()) {
    cmd = FQueue.front();
    FQueue.pop_front();
    return true;
  }
  if (FRepeatLeft > 0) {
    cmd = FCmdSet->RepeatedCmd(FRepeatValue);
    --FRepeatLeft;
    return cmd.Len > 0;
  }
  return false;
}

bool TSerialCmdThread::WriteCmd(const TCommCmd& cmd) {
  // A write that reports no bytes loses the command: no retry, no message.
  if (FPort->Write(cmd.ToString()) <= 0) return false;
  FWritten.fetch_add(1);
  if (GLaserDebugMode()) LogLine("Send Data: " + HexDump(cmd.Bytes()));
  return true;
}

void TSerialCmdThread::ReportFault(TLaserThread& thread, const std::string& prefix, const std::string& what) {
  thread.SleepA(FOptions.Pacing.FaultMs);
  // Only the first fault of the thread's life reaches the operator; a broken line would repeat it every cycle.
  if (FShowFault.exchange(false)) ShowMsg(prefix + what, nchost::msgtype::kLaserLog);
}

}  // namespace devlaser
