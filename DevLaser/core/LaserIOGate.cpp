#include "core/LaserIOGate.h"

#include "frame/LaserComm.h"

namespace devlaser {
namespace {

template <class V>
V ValueOr(const std::map<uint8_t, V>& values, uint8_t port, V fallback) {
  auto it = values.find(port);
  return it == values.end() ? fallback : it->second;
}

}  // namespace

TLaserIOGate::TLaserIOGate(std::shared_ptr<nchost::ICtrlExtIO> target)
    : FTarget(std::move(target)), FHasTarget(FTarget != nullptr) {}

nchost::ICtrlExtIO& TLaserIOGate::TargetLocked() {
  // Without a controller IO the laser talks to a simulated board, so that every primitive works. The board is
  // created once, whichever thread asks first.
  if (!FHasTarget) std::call_once(FSimOnce, [this] { FTarget = std::make_shared<TSimIOExtBoard>(); });
  return *FTarget;
}

std::shared_ptr<nchost::ICtrlExtIO> TLaserIOGate::Target() {
  std::shared_lock lock(FLock);
  TargetLocked();
  return FTarget;
}

void TLaserIOGate::Detach() noexcept {
  FDetached.store(true);
  std::unique_lock lock(FLock);  // waits for the calls under way
}

template <class R, class F, class G>
R TLaserIOGate::Read(F&& call, G&& detached) {
  if (!FDetached.load()) {
    std::shared_lock lock(FLock);
    if (!FDetached.load()) return call(TargetLocked());
  }
  std::lock_guard lock(FWrittenLock);
  return detached(FWritten);
}

template <class F, class G>
void TLaserIOGate::Write(F&& call, G&& record) {
  if (FDetached.load()) return;
  std::shared_lock lock(FLock);
  if (FDetached.load()) return;
  call(TargetLocked());
  std::lock_guard written(FWrittenLock);
  record(FWritten);
}

// Existence: a detached laser has no ports, so that models skip their output writes instead of making them.
bool TLaserIOGate::GetOutPortExist(uint8_t port) {
  return Read<bool>([&](auto& io) { return io.GetOutPortExist(port); }, [](auto&) { return false; });
}
bool TLaserIOGate::GetInPortExist(uint8_t port) {
  return Read<bool>([&](auto& io) { return io.GetInPortExist(port); }, [](auto&) { return false; });
}
bool TLaserIOGate::GetPwmPortExist(uint8_t port) {
  return Read<bool>([&](auto& io) { return io.GetPwmPortExist(port); }, [](auto&) { return false; });
}
bool TLaserIOGate::GetDAPortExist(uint8_t port) {
  return Read<bool>([&](auto& io) { return io.GetDAPortExist(port); }, [](auto&) { return false; });
}
bool TLaserIOGate::GetADPortExist(uint8_t port) {
  return Read<bool>([&](auto& io) { return io.GetADPortExist(port); }, [](auto&) { return false; });
}

bool TLaserIOGate::GetOutputBit(uint8_t port) {
  return Read<bool>([&](auto& io) { return io.GetOutputBit(port); },
                    [&](auto& w) { return ValueOr(w.Outputs, port, false); });
}
bool TLaserIOGate::GetInputBit(uint8_t port) {
  return Read<bool>([&](auto& io) { return io.GetInputBit(port); }, [](auto&) { return false; });
}
bool TLaserIOGate::GetPwmEn(uint8_t port) {
  return Read<bool>([&](auto& io) { return io.GetPwmEn(port); },
                    [&](auto& w) { return ValueOr(w.PwmEn, port, false); });
}
double TLaserIOGate::GetPwmFreq(uint8_t port) {
  return Read<double>([&](auto& io) { return io.GetPwmFreq(port); },
                      [&](auto& w) { return ValueOr(w.PwmFreq, port, 0.0); });
}
double TLaserIOGate::GetPwmRatio(uint8_t port) {
  return Read<double>([&](auto& io) { return io.GetPwmRatio(port); },
                      [&](auto& w) { return ValueOr(w.PwmRatio, port, 0.0); });
}
double TLaserIOGate::GetDAValue(uint8_t port) {
  return Read<double>([&](auto& io) { return io.GetDAValue(port); }, [&](auto& w) { return ValueOr(w.DA, port, 0.0); });
}
double TLaserIOGate::GetADValue(uint8_t port) {
  return Read<double>([&](auto& io) { return io.GetADValue(port); }, [](auto&) { return 0.0; });
}

void TLaserIOGate::SetOutputbit(uint8_t port, bool value) {
  Write([&](auto& io) { io.SetOutputbit(port, value); }, [&](auto& w) { w.Outputs[port] = value; });
}
void TLaserIOGate::CloseAllOutports() {
  Write([](auto& io) { io.CloseAllOutports(); }, [](auto& w) { w.Outputs.clear(); });
}
void TLaserIOGate::SetPwmEn(uint8_t port, bool value) {
  Write([&](auto& io) { io.SetPwmEn(port, value); }, [&](auto& w) { w.PwmEn[port] = value; });
}
void TLaserIOGate::SetPwmFreq(uint8_t port, double value) {
  Write([&](auto& io) { io.SetPwmFreq(port, value); }, [&](auto& w) { w.PwmFreq[port] = value; });
}
void TLaserIOGate::SetPwmRatio(uint8_t port, double value) {
  Write([&](auto& io) { io.SetPwmRatio(port, value); }, [&](auto& w) { w.PwmRatio[port] = value; });
}
void TLaserIOGate::SetDAValue(uint8_t port, double value) {
  Write([&](auto& io) { io.SetDAValue(port, value); }, [&](auto& w) { w.DA[port] = value; });
}

}  // namespace devlaser
