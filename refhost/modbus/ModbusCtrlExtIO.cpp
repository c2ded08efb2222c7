#include "refhost/modbus/ModbusCtrlExtIO.h"

#include <pthread.h>

#include <algorithm>
#include <charconv>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <set>
#include <thread>

#include "host/HostDefs.h"
#include "refhost/SimCtrlExtIO.h"
#include "refhost/modbus/ModbusImage.h"
#include "refhost/modbus/ModbusLink.h"

namespace refhost {
namespace {

constexpr const char* kCategory = "IO";

std::string Number(double v) {
  char buffer[64];
  auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, v, std::chars_format::fixed, 3);
  return ec == std::errc() ? std::string(buffer, end) : "?";
}

// "SetOutputbit 6 (coil 6)".
std::string Describe(const TModbusPoint& p) {
  return std::string(IORoleOperation(p.Role)) + " " + std::to_string(p.Port) + " (" + ModbusTableName(p.Table) + " " +
         std::to_string(p.Address) + ")";
}

}  // namespace

std::string TModbusIOOptions::Address() const {
  const bool ipv6 = Host.find(':') != std::string::npos;
  return (ipv6 ? "[" + Host + "]" : Host) + ":" + std::to_string(Port) + " unit " + std::to_string(Unit);
}

class TModbusCtrlExtIO::TImpl {
 public:
  TImpl(TModbusIOOptions options, std::shared_ptr<TMessageSink> sink)
      : Options(std::move(options)),
        Image(Options.Map),
        Reads(PlanModbusReads(Image.Map())),
        Link(Options),
        Sink(std::move(sink)),
        Created(std::chrono::steady_clock::now()) {}

  // Host side ---------------------------------------------------------------------------------------------------
  void HostWrite(TIOOp op, TIORole role, uint8_t port, double value) {
    Print(op, port, value);
    const TModbusImage::TWriteOutcome outcome = Image.Write(role, port, value);
    const int point = Image.Find(role, port);
    if (outcome.Result == TImageWrite::Disconnected && outcome.DroppedSinceLoss == 1)
      Log(nchost::msgtype::kWarning, "IO module " + Options.Address() + " is not connected: " +
                                         Describe(Image.Map().Points[static_cast<size_t>(point)]) +
                                         " was not sent; writes are dropped while the link is down");
    if (outcome.Result == TImageWrite::Queued && outcome.Clamped) {
      const TModbusPoint& p = Image.Map().Points[static_cast<size_t>(point)];
      Log(nchost::msgtype::kWarning, Describe(p) + ": " + Number(value) + " does not fit the register at scale " +
                                         Number(p.Scale) + "; " + std::to_string(outcome.Raw) + " is sent");
    }
  }

  void Print(TIOOp op, uint8_t port, double value) {
    std::lock_guard lock(PrintMutex);
    if (!PrintSink) return;
    const TIOWrite write{
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - Created), op, port,
        value};
    PrintSink->Write(TMessageEntry{TEntryKind::Log, nchost::msgtype::kInformation, PrintCategory, write.Line(), 0});
  }

  // Link side (the scan thread, or the caller of Connect before the thread starts) ------------------------------
  // Connects, brings the module to the safe state, takes host writes again and reads the inputs.
  bool BringUp(std::string& error) {
    if (!Link.Connect(error)) return false;
    RefusedReads.clear();
    for (const TPendingWrite& write : Image.SafeStateWrites())
      if (!Send(write, error)) return false;
    const int dropped = Image.LinkUp();
    if (!ReadInputs(error)) return false;
    if (LossReported) {
      Message(nchost::msgtype::kInformation, "IO module " + Options.Address() +
                                                 " answers again; its outputs stay off until the laser or the host "
                                                 "writes them");
      LossReported = false;
    }
    if (dropped > 1)
      Log(nchost::msgtype::kInformation, std::to_string(dropped) + " writes to IO module " + Options.Address() +
                                             " were dropped while it did not answer");
    return true;
  }

  // One write; a refusal is logged and dropped, never retried. False when the link failed.
  bool Send(const TPendingWrite& write, std::string& error) {
    const TModbusPoint& p = Image.Map().Points[write.Point];
    switch (Link.Write(p, write.Raw, error)) {
      case TLinkResult::Ok:
        Image.WriteDone(write, true);
        return true;
      case TLinkResult::Refused:
        Image.WriteDone(write, false);
        Log(nchost::msgtype::kWarning, "IO module " + Options.Address() + " refused " + Describe(p) +
                                           " := " + std::to_string(write.Raw) + ": " + error);
        return true;
      case TLinkResult::Lost:
        break;
    }
    return false;
  }

  bool Flush(std::string& error) {
    for (const TPendingWrite& write : Image.TakePendingWrites())
      if (!Send(write, error)) return false;
    return true;
  }

  bool ReadInputs(std::string& error) {
    std::vector<uint16_t> values;
    for (size_t b = 0; b < Reads.size(); ++b) {
      const TModbusReadBlock& block = Reads[b];
      switch (Link.Read(block, values, error)) {
        case TLinkResult::Ok:
          for (size_t point : block.Points)
            Image.StoreRead(point, values[Image.Map().Points[point].Address - block.Start]);
          break;
        case TLinkResult::Refused:
          // Once per connection: the module will refuse the same read every scan.
          if (RefusedReads.insert(b).second)
            Log(nchost::msgtype::kWarning,
                "IO module " + Options.Address() + " refused to read " + ModbusTableName(block.Table) + " " +
                    std::to_string(block.Start) + ".." + std::to_string(block.Start + block.Count - 1) + " (" +
                    Describe(Image.Map().Points[block.Points.front()]) + "...): " + error + "; those inputs read 0");
          break;
        case TLinkResult::Lost:
          return false;
      }
    }
    return true;
  }

  void LinkLost(const std::string& why) {
    Link.Close();
    Image.LinkDown();
    if (LossReported) return;
    LossReported = true;
    Message(nchost::msgtype::kWarning, "IO module " + Options.Address() + " does not answer (" + why +
                                           "): its outputs are taken as off; reconnecting");
  }

  // Every mapped output off, as far as the link allows, then the link closed.
  void SafeShutdown() {
    if (Link.IsOpen()) {
      std::string error;
      for (const TPendingWrite& write : Image.SafeStateWrites())
        if (!Send(write, error)) break;
    }
    Link.Close();
    Image.LinkDown();
  }

  void Scan(std::stop_token stop) {
    ::pthread_setname_np(::pthread_self(), "ModbusScan");
    // Waits between scans and reconnection attempts; only a stop ends them early.
    std::mutex waitMutex;
    std::condition_variable_any scanTimer;
    auto retry = Options.RetryFirst;
    std::string error;
    while (!stop.stop_requested()) {
      if (!Image.Connected()) {
        if (!BringUp(error)) {
          LinkLost(error);
          std::unique_lock lock(waitMutex);
          scanTimer.wait_for(lock, stop, retry, [] { return false; });
          retry = std::min(retry * 2, Options.RetryLongest);
          continue;
        }
        retry = Options.RetryFirst;
      }
      const auto nextScan = TModbusImage::Clock::now() + Options.ScanPeriod;
      if (!Flush(error) || !ReadInputs(error)) {
        LinkLost(error);
        continue;
      }
      std::unique_lock lock(waitMutex);
      scanTimer.wait_until(lock, stop, nextScan, [] { return false; });
    }
    SafeShutdown();
  }

  void Message(int type, const std::string& text) { Write(TEntryKind::Message, type, "", text); }
  void Log(int type, const std::string& text) { Write(TEntryKind::Log, type, kCategory, text); }
  void Write(TEntryKind kind, int type, const std::string& category, const std::string& text) {
    if (Sink) Sink->Write(TMessageEntry{kind, type, category, text, 0});
  }

  const TModbusIOOptions Options;
  TModbusImage Image;
  const std::vector<TModbusReadBlock> Reads;
  TModbusLink Link;  // the scan thread's alone once it runs
  const std::shared_ptr<TMessageSink> Sink;
  const std::chrono::steady_clock::time_point Created;

  std::mutex PrintMutex;
  std::shared_ptr<TMessageSink> PrintSink;
  std::string PrintCategory;

  // The scan thread's own (the caller's before Start).
  bool LossReported = false;
  std::set<size_t> RefusedReads;

  std::mutex StartStopMutex;
  bool Started = false;
  std::jthread Thread;  // last: stopped and joined before anything it uses goes
};

TModbusCtrlExtIO::TModbusCtrlExtIO(TModbusIOOptions options, std::shared_ptr<TMessageSink> sink)
    : FImpl(std::make_unique<TImpl>(std::move(options), std::move(sink))) {}

TModbusCtrlExtIO::~TModbusCtrlExtIO() { Stop(); }

bool TModbusCtrlExtIO::Connect(std::string& error) {
  std::lock_guard lock(FImpl->StartStopMutex);
  if (FImpl->Started) return FImpl->Image.Connected();
  std::string why;
  if (FImpl->BringUp(why)) return true;
  FImpl->Link.Close();
  FImpl->Image.LinkDown();
  error = "IO module " + FImpl->Options.Address() + " does not answer: " + why;
  return false;
}

void TModbusCtrlExtIO::Start() {
  std::lock_guard lock(FImpl->StartStopMutex);
  if (FImpl->Started) return;
  FImpl->Started = true;
  FImpl->Thread = std::jthread([impl = FImpl.get()](std::stop_token stop) {
    try {
      impl->Scan(stop);
    } catch (const std::exception& e) {
      impl->Log(nchost::msgtype::kError, std::string("the Modbus scan thread ended: ") + e.what());
      impl->Image.LinkDown();
    }
  });
}

void TModbusCtrlExtIO::Stop() {
  std::lock_guard lock(FImpl->StartStopMutex);
  FImpl->Image.Close();
  if (FImpl->Thread.joinable()) {
    FImpl->Thread.request_stop();
    FImpl->Thread.join();
  } else {
    FImpl->SafeShutdown();  // connected but never started
  }
}

bool TModbusCtrlExtIO::Connected() const { return FImpl->Image.Connected(); }
const TModbusIOOptions& TModbusCtrlExtIO::Options() const { return FImpl->Options; }

void TModbusCtrlExtIO::SetPrintSink(std::shared_ptr<TMessageSink> sink, std::string category) {
  std::lock_guard lock(FImpl->PrintMutex);
  FImpl->PrintSink = std::move(sink);
  FImpl->PrintCategory = std::move(category);
}

bool TModbusCtrlExtIO::GetOutPortExist(uint8_t port) { return FImpl->Image.Find(TIORole::Output, port) >= 0; }
bool TModbusCtrlExtIO::GetOutputBit(uint8_t port) { return FImpl->Image.Read(TIORole::Output, port) != 0.0; }
void TModbusCtrlExtIO::SetOutputbit(uint8_t port, bool value) {
  FImpl->HostWrite(TIOOp::SetOutputbit, TIORole::Output, port, value ? 1.0 : 0.0);
}
void TModbusCtrlExtIO::CloseAllOutports() {
  FImpl->Print(TIOOp::CloseAllOutports, 0, 0.0);
  FImpl->Image.AllOutputsOff();
}
bool TModbusCtrlExtIO::GetInPortExist(uint8_t port) { return FImpl->Image.Find(TIORole::Input, port) >= 0; }
bool TModbusCtrlExtIO::GetInputBit(uint8_t port) { return FImpl->Image.Read(TIORole::Input, port) != 0.0; }
bool TModbusCtrlExtIO::GetPwmPortExist(uint8_t port) { return FImpl->Image.Find(TIORole::PwmEnable, port) >= 0; }
bool TModbusCtrlExtIO::GetPwmEn(uint8_t port) { return FImpl->Image.Read(TIORole::PwmEnable, port) != 0.0; }
double TModbusCtrlExtIO::GetPwmFreq(uint8_t port) { return FImpl->Image.Read(TIORole::PwmFrequency, port); }
double TModbusCtrlExtIO::GetPwmRatio(uint8_t port) { return FImpl->Image.Read(TIORole::PwmRatio, port); }
void TModbusCtrlExtIO::SetPwmEn(uint8_t port, bool value) {
  FImpl->HostWrite(TIOOp::SetPwmEn, TIORole::PwmEnable, port, value ? 1.0 : 0.0);
}
void TModbusCtrlExtIO::SetPwmFreq(uint8_t port, double value) {
  FImpl->HostWrite(TIOOp::SetPwmFreq, TIORole::PwmFrequency, port, value);
}
void TModbusCtrlExtIO::SetPwmRatio(uint8_t port, double value) {
  FImpl->HostWrite(TIOOp::SetPwmRatio, TIORole::PwmRatio, port, value);
}
bool TModbusCtrlExtIO::GetDAPortExist(uint8_t port) { return FImpl->Image.Find(TIORole::DA, port) >= 0; }
double TModbusCtrlExtIO::GetDAValue(uint8_t port) { return FImpl->Image.Read(TIORole::DA, port); }
void TModbusCtrlExtIO::SetDAValue(uint8_t port, double value) {
  FImpl->HostWrite(TIOOp::SetDAValue, TIORole::DA, port, value);
}
bool TModbusCtrlExtIO::GetADPortExist(uint8_t port) { return FImpl->Image.Find(TIORole::AD, port) >= 0; }
double TModbusCtrlExtIO::GetADValue(uint8_t port) { return FImpl->Image.Read(TIORole::AD, port); }

}  // namespace refhost
