#include "raycus/RaycusLaser.h"

#include "raycus/RaycusEsc.h"

namespace devlaser {

TRaycusLaser::TRaycusLaser(const TLaserParams& params, std::shared_ptr<nchost::ICtrlExtIO> io)
    : TFiberLaser(params, std::move(io)),
      FSerialPortNo(params.DefParams.Comm.CommPort),
      FStartPort(params.CfgRay.UseRemoteCtrl ? params.CfgRay.RayStartPort : 0),
      FGatePort(params.DefParams.CtrlPort) {}

TRaycusLaser::~TRaycusLaser() = default;

void TRaycusLaser::Create() {
  TFiberLaser::Create();
  if (FSerialPortNo <= 0 || FSerialThread) return;
  TSerialThreadOptions options;
  options.Name = kThreadName;
  options.StartedText = "Raycus thread started!";
  options.FaultPrefix = kFaultPrefix;
  options.CommPort = FSerialPortNo;
  options.CommSettings = FParams.DefParams.Comm.CommSettings;
  FSerialThread = std::make_unique<TSerialCmdThread>(
      std::move(options), std::make_unique<raycus::TRaycusCmdSet>(FParams.DefParams.Comm.IgnoreCommResult),
      Ports().CommCtrl());
  // Stopped after BeforeDestruction has queued emission off, which the stop still writes; then the base closes
  // the port for good.
  Owns("serial thread", [this] { FSerialThread->Stop(); });
}

void TRaycusLaser::QueueCmd(std::span<const uint8_t> bytes) {
  if (HasSerial()) FSerialThread->LockAddCmd(bytes);
}

void TRaycusLaser::SetOutputIfPresent(int32_t port, bool on) {
  if (port <= 0) return;
  auto& io = IO();
  const auto out = static_cast<uint8_t>(port);
  if (io.GetOutPortExist(out)) io.SetOutputbit(out, on);
}

bool TRaycusLaser::GetIsHardWire() { return FGatePort > 0 && IO().GetOutPortExist(static_cast<uint8_t>(FGatePort)); }

bool TRaycusLaser::GetIsEmissionOn() {
  if (GetIsHardWire()) return IO().GetOutputBit(static_cast<uint8_t>(FGatePort));
  return FEmissionFlag.load();
}

void TRaycusLaser::EmissionOn() {
  // On the way on the start output leads the serial command.
  SetOutputIfPresent(FStartPort, true);
  QueueCmd(raycus::kEmissionOnCmd);
  FEmissionFlag.store(true);
  TFiberLaser::EmissionOn();
  if (GetIsHardWire()) {
    SetOutputIfPresent(FGatePort, true);
    MutexEmAndAB(kEmissionSwitchedOn);
  }
}

void TRaycusLaser::EmissionOff() {
  // On the way off the serial command leads the start output.
  TNcLaser::EmissionOff();
  QueueCmd(raycus::kEmissionOffCmd);
  SetOutputIfPresent(FStartPort, false);
  FEmissionFlag.store(false);
  if (GetIsHardWire()) {
    SetOutputIfPresent(FGatePort, false);
    MutexEmAndAB(kEmissionSwitchedOff);
  }
}

void TRaycusLaser::LaserOn() {
  TFiberLaser::LaserOn();
  if (!GetIsRaycusQCW()) return;
  const TLaserQcwParams& qcw = FParams.CfgRay.QCW;
  QueueCmd(raycus::QcwPulseCmd(qcw.PulseFreq, qcw.PulseRatio, qcw.PulsePower));
}

void TRaycusLaser::PowerOn() {
  TNcLaser::PowerOn();
  EmissionOn();
}

bool TRaycusLaser::SetDiodeCustom(double value) {
  if (FSerialPortNo <= 0 || !FSerialThread) return false;
  FSerialThread->SetRepeatedValue(static_cast<uint8_t>(static_cast<uint32_t>(RoundHalfEven(value)) & 0xFFu));
  return true;
}

}  // namespace devlaser
