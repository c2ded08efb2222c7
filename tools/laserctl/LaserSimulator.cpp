#include "LaserSimulator.h"

#include "sim/common/PrintableBytes.h"

namespace laserctl {
namespace {

constexpr const char* kLoopback = "127.0.0.1";

}  // namespace

TLaserSimulator::TLaserSimulator() = default;

TLaserSimulator::~TLaserSimulator() { Stop(); }

void TLaserSimulator::SetTrace(TTrace trace) {
  FTrace = trace;
  if (!trace) {
    FEngine.SetTraceHook({});
    return;
  }
  FEngine.SetTraceHook([trace = std::move(trace)](const std::string& command, const std::string& reply) {
    if (command == "STA") return;  // the driver polls the status several times a second
    trace("<- " + lasersim::PrintableBytes(command) + "  -> " +
          (reply.empty() ? "(no reply)" : lasersim::PrintableBytes(reply)));
  });
}

bool TLaserSimulator::Start(const TSimTarget& target, std::string& error) {
  if (!target.HasSimulator) {
    error = "there is no simulator for " + target.Family + " over " + SimLinkName(target.Link) + " yet";
    return false;
  }
  if (target.Family == kRaycusFamily) {
    FRaycus = std::make_unique<TRaycusSimulator>();
    FRaycus->SetTrace(FTrace);
    if (FRaycus->Start(error)) return true;
    FRaycus.reset();
    return false;
  }
  if (target.Family == kZorunFamily) {
    FZorun = std::make_unique<TZorunSimulator>();
    if (FTrace) FZorun->SetTrace(FTrace);
    if (!FZorun->Start(target, target.HostDir + "/ZorunLaser.json", error)) {
      FZorun.reset();
      return false;
    }
    FTcpHost = FZorun->Host();
    return true;
  }
  if (target.Link == TSimLink::Serial) {
    FPty = std::make_unique<lasersim::TIpgYlrPtyServer>(FEngine);
    if (!FPty->Start()) {
      error = "cannot start the " + target.Family + " simulator on a pseudo-terminal: " + FPty->LastError();
      FPty.reset();
      return false;
    }
    return true;
  }
  FTcp = std::make_unique<lasersim::TIpgYlrTcpServer>(FEngine);
  if (FTcp->Start(target.Host, target.Port)) {
    FTcpHost = target.Host;
    return true;
  }
  const std::string firstError = FTcp->LastError();
  if (target.Host != kLoopback && FTcp->Start(kLoopback, target.Port)) {
    FTcpHost = kLoopback;
    return true;
  }
  error = "cannot start the " + target.Family + " simulator on " + target.Host + ":" + std::to_string(target.Port) +
          ": " + firstError;
  if (target.Host != kLoopback) error += "; nor on " + std::string(kLoopback) + ": " + FTcp->LastError();
  FTcp.reset();
  return false;
}

void TLaserSimulator::Stop() {
  if (FTcp) FTcp->Stop();
  if (FPty) FPty->Stop();
  if (FRaycus) FRaycus->Stop();
  if (FZorun) FZorun->Stop();
}

const std::string& TLaserSimulator::SerialPath() const {
  static const std::string kNone;
  if (FRaycus) return FRaycus->SerialPath();
  if (FZorun) return FZorun->SerialPath();
  return FPty ? FPty->SlavePath() : kNone;
}

}  // namespace laserctl
