#include "refhost/SimCtrlExtIO.h"

#include <algorithm>
#include <charconv>

#include "host/HostDefs.h"

namespace refhost {
namespace {

// Three decimals with a point, whatever the process locale says.
std::string Fixed3(double v) {
  char buffer[64];
  auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, v, std::chars_format::fixed, 3);
  if (ec != std::errc()) return "?";
  return std::string(buffer, end);
}

// Port 0 means "not used" for digital and PWM ports, whatever the caller asked for.
TSimIOPorts WithoutUnusedPort(TSimIOPorts ports) {
  ports.Outputs.reset(0);
  ports.Inputs.reset(0);
  ports.Pwm.reset(0);
  return ports;
}

}  // namespace

TPortSet TSimIOPorts::Range(int first, int last) {
  TPortSet set;
  for (int p = std::max(first, 0); p <= std::min(last, 255); ++p) set.set(static_cast<size_t>(p));
  return set;
}

TSimIOPorts TSimIOPorts::Default() {
  return TSimIOPorts{Range(1, 64), Range(1, 64), Range(1, 4), Range(0, 7), Range(0, 7)};
}

const char* IOOpName(TIOOp op) {
  switch (op) {
    case TIOOp::SetOutputbit:
      return "SetOutputbit";
    case TIOOp::CloseAllOutports:
      return "CloseAllOutports";
    case TIOOp::SetPwmEn:
      return "SetPwmEn";
    case TIOOp::SetPwmFreq:
      return "SetPwmFreq";
    case TIOOp::SetPwmRatio:
      return "SetPwmRatio";
    case TIOOp::SetDAValue:
      return "SetDAValue";
  }
  return "?";
}

std::string TIOWrite::Line() const {
  std::string line = IOOpName(Op);
  switch (Op) {
    case TIOOp::CloseAllOutports:
      return line;
    case TIOOp::SetOutputbit:
    case TIOOp::SetPwmEn:
      return line + ": " + std::to_string(Port) + ", " + (Value != 0.0 ? "True" : "False");
    default:
      return line + ": " + std::to_string(Port) + ", " + Fixed3(Value);
  }
}

TSimCtrlExtIO::TSimCtrlExtIO(TSimIOPorts ports)
    : FPorts(WithoutUnusedPort(std::move(ports))), FCreated(std::chrono::steady_clock::now()) {}

void TSimCtrlExtIO::SetPrintSink(std::shared_ptr<TMessageSink> sink, std::string category) {
  std::lock_guard lock(FMutex);
  FPrintSink = std::move(sink);
  FPrintCategory = std::move(category);
}

void TSimCtrlExtIO::SetInput(uint8_t port, bool value) {
  if (!FPorts.Inputs.test(port)) return;
  {
    std::lock_guard lock(FMutex);
    FState.Inputs.set(port, value);
  }
  FChanged.notify_all();
}

void TSimCtrlExtIO::SetADValue(uint8_t port, double value) {
  if (!FPorts.AD.test(port)) return;
  {
    std::lock_guard lock(FMutex);
    FState.AD[port] = value;
  }
  FChanged.notify_all();
}

TSimIOState TSimCtrlExtIO::State() const {
  std::lock_guard lock(FMutex);
  return FState;
}

std::vector<TIOWrite> TSimCtrlExtIO::Writes() const {
  std::lock_guard lock(FMutex);
  return FWrites;
}

void TSimCtrlExtIO::ClearWrites() {
  std::lock_guard lock(FMutex);
  FWrites.clear();
}

bool TSimCtrlExtIO::WaitUntil(const std::function<bool(const TSimIOState&)>& holds,
                              std::chrono::milliseconds timeout) const {
  std::unique_lock lock(FMutex);
  return FChanged.wait_for(lock, timeout, [&] { return holds(FState); });
}

bool TSimCtrlExtIO::WaitForWrite(const std::function<bool(const TIOWrite&)>& matches,
                                 std::chrono::milliseconds timeout) const {
  std::unique_lock lock(FMutex);
  return FChanged.wait_for(lock, timeout, [&] { return std::any_of(FWrites.begin(), FWrites.end(), matches); });
}

bool TSimCtrlExtIO::GetOutputBit(uint8_t port) {
  std::lock_guard lock(FMutex);
  return FState.Outputs.test(port);
}

void TSimCtrlExtIO::SetOutputbit(uint8_t port, bool value) {
  RecordWrite(TIOOp::SetOutputbit, port, value ? 1.0 : 0.0, [&](TSimIOState& s) {
    if (FPorts.Outputs.test(port)) s.Outputs.set(port, value);
  });
}

void TSimCtrlExtIO::CloseAllOutports() {
  RecordWrite(TIOOp::CloseAllOutports, 0, 0.0, [](TSimIOState& s) { s.Outputs.reset(); });
}

bool TSimCtrlExtIO::GetInputBit(uint8_t port) {
  std::lock_guard lock(FMutex);
  return FState.Inputs.test(port);
}

bool TSimCtrlExtIO::GetPwmEn(uint8_t port) {
  std::lock_guard lock(FMutex);
  return FState.PwmEn.test(port);
}

double TSimCtrlExtIO::GetPwmFreq(uint8_t port) {
  std::lock_guard lock(FMutex);
  return FState.PwmFreq[port];
}

double TSimCtrlExtIO::GetPwmRatio(uint8_t port) {
  std::lock_guard lock(FMutex);
  return FState.PwmRatio[port];
}

void TSimCtrlExtIO::SetPwmEn(uint8_t port, bool value) {
  RecordWrite(TIOOp::SetPwmEn, port, value ? 1.0 : 0.0, [&](TSimIOState& s) {
    if (FPorts.Pwm.test(port)) s.PwmEn.set(port, value);
  });
}

void TSimCtrlExtIO::SetPwmFreq(uint8_t port, double value) {
  RecordWrite(TIOOp::SetPwmFreq, port, value, [&](TSimIOState& s) {
    if (FPorts.Pwm.test(port)) s.PwmFreq[port] = value;
  });
}

void TSimCtrlExtIO::SetPwmRatio(uint8_t port, double value) {
  RecordWrite(TIOOp::SetPwmRatio, port, value, [&](TSimIOState& s) {
    if (FPorts.Pwm.test(port)) s.PwmRatio[port] = value;
  });
}

double TSimCtrlExtIO::GetDAValue(uint8_t port) {
  std::lock_guard lock(FMutex);
  return FState.DA[port];
}

void TSimCtrlExtIO::SetDAValue(uint8_t port, double value) {
  RecordWrite(TIOOp::SetDAValue, port, value, [&](TSimIOState& s) {
    if (FPorts.DA.test(port)) s.DA[port] = value;
  });
}

double TSimCtrlExtIO::GetADValue(uint8_t port) {
  std::lock_guard lock(FMutex);
  return FState.AD[port];
}

void TSimCtrlExtIO::RecordWrite(TIOOp op, uint8_t port, double value, const std::function<void(TSimIOState&)>& apply) {
  TIOWrite write{std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - FCreated), op,
                 port, value};
  {
    std::lock_guard lock(FMutex);
    apply(FState);
    FWrites.push_back(write);
    // Printed under the lock so that printed lines keep the order of the write log.
    if (FPrintSink)
      FPrintSink->Write(TMessageEntry{TEntryKind::Log, nchost::msgtype::kInformation, FPrintCategory, write.Line(), 0});
  }
  FChanged.notify_all();
}

}  // namespace refhost
