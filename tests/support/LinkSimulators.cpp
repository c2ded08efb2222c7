#include "support/LinkSimulators.h"

#include <algorithm>

#include "frame/HostServices.h"
#include "refhost/RefApp.h"
#include "sim/common/ReplyQueue.h"
#include "sim/ipg/IpgYlrEngine.h"
#include "sim/ipg/IpgYlrPtyServer.h"
#include "sim/ipg/IpgYlrStatus.h"
#include "sim/ipg/IpgYlrTcpServer.h"
#include "sim/raycus/RaycusEscEngine.h"
#include "sim/raycus/RaycusPtyServer.h"
#include "sim/rayqcw/RayQcwEngine.h"
#include "sim/rayqcw/RayQcwPtyServer.h"
#include "sim/zorun/ZorunSimEngine.h"
#include "sim/zorun/ZorunSimServer.h"
#include "support/ScratchDir.h"
#include "support/ZorunDescriptionText.h"

namespace testsupport {
namespace {

using devlaser::TLaserParams;

// Points a laser at a simulator on a TCP or UDP address, or at a pseudo-terminal mapped to the slot's port number.
void PointAtNetwork(TLaserParams& params, devlaser::TDataTransType type, const std::string& address, int32_t port) {
  params.DefParams.DataTransType = type;
  params.DefParams.Net.TcpHost = address;
  if (port > 0) params.DefParams.Net.TcpPort = port;
}

bool PointAtSerial(TLaserParams& params, const TSimSlot& slot, const std::string& path, std::string& error) {
  if (!slot.SerialPorts || !slot.SerialPorts->Set(slot.SerialPort, path)) {
    error = "no serial port map or port number in the slot";
    return false;
  }
  params.DefParams.DataTransType = devlaser::dttSerial;
  params.DefParams.Comm.CommPort = slot.SerialPort;
  return true;
}

// How the faults that shape replies look on every simulator: a reply that starts a quarter of a second late (past
// the short reply windows of setters and polls, within the second a read waits), or one that comes byte by byte.
constexpr auto kSlowFirstByte = std::chrono::milliseconds(250);
lasersim::TReplyShape ShapeOf(TPeerFault fault) {
  lasersim::TReplyShape shape;
  if (fault == TPeerFault::BytePieces) shape.PieceBytes = 1;
  if (fault == TPeerFault::SlowFirstByte) shape.FirstByteDelay = kSlowFirstByte;
  return shape;
}

// IPG YLR text commands, over TCP port 10001 and a serial line.
class TIpgYlrSimulator final : public TLinkSimulator {
 public:
  bool Start(TLink link, const TSimSlot& slot, TLaserParams& params, std::string& error) override {
    if (link == TLink::Tcp) {
      if (!FTcp.Start(slot.Address)) return (error = FTcp.LastError()), false;
      PointAtNetwork(params, devlaser::dttNetTcp, slot.Address, 0);
      return true;
    }
    if (link == TLink::Serial) {
      if (!FPty) FPty = std::make_unique<lasersim::TIpgYlrPtyServer>(FEngine, FSerialLinkPath);
      if (!FPty->Start()) return (error = FPty->LastError()), false;
      return PointAtSerial(params, slot, FPty->PortPath(), error);
    }
    error = "the IPG YLR simulator speaks TCP and serial only";
    return false;
  }
  void Stop() override {
    FTcp.Stop();
    if (FPty) FPty->Stop();
  }
  size_t Received() const override { return FEngine.Log().Received(); }
  bool WaitFor(const std::string& command, std::chrono::milliseconds timeout, size_t times) const override {
    return FEngine.Log().WaitFor(command, timeout, times);
  }
  bool SetPeerFault(TLink link, TPeerFault fault) override {
    using Mode = lasersim::TIpgYlrEngine::TReplyMode;
    FEngine.SetReplyMode(fault == TPeerFault::Silent    ? Mode::Silent
                         : fault == TPeerFault::Garbage ? Mode::GarbageBytes
                                                        : Mode::Normal);
    const auto shape = ShapeOf(fault);
    if (link == TLink::Tcp) {
      lasersim::TIpgYlrTcpServer::TLinkShape tcpShape;
      tcpShape.ReplyDelay = shape.FirstByteDelay;
      tcpShape.PieceBytes = shape.PieceBytes;
      tcpShape.PieceGap = shape.PieceGap;
      FTcp.SetLinkShape(tcpShape);
    } else if (FPty) {
      FPty->SetReplyShape(shape);
    }
    return true;
  }
  void PowerCycle() override { FEngine.PowerCycle(); }
  bool Emitting() const override { return (FEngine.StatusWord() & lasersim::ipgylr::kEmission) != 0; }
  std::string EmissionOnCommand() const override { return "EMON"; }
  std::string EmissionOffCommand() const override { return "EMOFF"; }
  size_t Count(const std::string& command) const override { return FEngine.Log().Count(command); }
  void ClearLog() override { FEngine.Log().Clear(); }

 private:
  lasersim::TIpgYlrEngine FEngine;
  lasersim::TIpgYlrTcpServer FTcp{FEngine};
  std::unique_ptr<lasersim::TIpgYlrPtyServer> FPty;  // made at the first serial start, with the slot's link path
};

// Raycus QCW frames over a serial line.
class TRayQcwSimulator final : public TLinkSimulator {
 public:
  bool Start(TLink link, const TSimSlot& slot, TLaserParams& params, std::string& error) override {
    if (link != TLink::Serial) {
      error = "the Raycus QCW simulator speaks serial only";
      return false;
    }
    if (!FPty) FPty = std::make_unique<lasersim::TRayQcwPtyServer>(FEngine, FSerialLinkPath);
    if (!FPty->Start()) return (error = FPty->LastError()), false;
    return PointAtSerial(params, slot, FPty->PortPath(), error);
  }
  void Stop() override {
    if (FPty) FPty->Stop();
  }
  size_t Received() const override { return FEngine.Log().Received(); }
  bool WaitFor(const std::string& command, std::chrono::milliseconds timeout, size_t times) const override {
    return FEngine.Log().WaitFor(command, timeout, times);
  }
  bool SetPeerFault(TLink, TPeerFault fault) override {
    using Mode = lasersim::TRayQcwEngine::TReplyMode;
    FEngine.SetReplyMode(fault == TPeerFault::Silent    ? Mode::Silent
                         : fault == TPeerFault::Garbage ? Mode::Garbage
                                                        : Mode::Normal);
    if (FPty) FPty->SetReplyShape(ShapeOf(fault));
    return true;
  }
  void PowerCycle() override { FEngine.PowerCycle(); }
  // The laser's output stage; emission itself follows the modulation input.
  bool Emitting() const override { return FEngine.LaserOn(); }
  std::string EmissionOnCommand() const override { return "LaserOn"; }
  std::string EmissionOffCommand() const override { return "LaserOff"; }
  size_t Count(const std::string& command) const override { return FEngine.Log().Count(command); }
  void ClearLog() override { FEngine.Log().Clear(); }

 private:
  lasersim::TRayQcwEngine FEngine;
  std::unique_ptr<lasersim::TRayQcwPtyServer> FPty;
};

// Raycus ESC commands over a serial line.
class TRaycusEscSimulator final : public TLinkSimulator {
 public:
  bool Start(TLink link, const TSimSlot& slot, TLaserParams& params, std::string& error) override {
    if (link != TLink::Serial) {
      error = "the Raycus ESC simulator speaks serial only";
      return false;
    }
    if (!FPty) FPty = std::make_unique<lasersim::TRaycusPtyServer>(FEngine, FSerialLinkPath);
    if (!FPty->Start()) return (error = FPty->LastError()), false;
    return PointAtSerial(params, slot, FPty->PortPath(), error);
  }
  void Stop() override {
    if (FPty) FPty->Stop();
  }
  size_t Received() const override { return FEngine.Received(); }
  bool WaitFor(const std::string& command, std::chrono::milliseconds timeout, size_t times) const override {
    return FEngine.WaitFor(command, timeout, times);
  }
  bool SetPeerFault(TLink, TPeerFault fault) override {
    using Mode = lasersim::TRaycusEscEngine::TReplyMode;
    FEngine.SetReplyMode(fault == TPeerFault::Silent    ? Mode::Silent
                         : fault == TPeerFault::Garbage ? Mode::Garbage
                                                        : Mode::AlwaysTS);
    if (FPty) FPty->SetReplyShape(ShapeOf(fault));
    return true;
  }
  void PowerCycle() override { FEngine.PowerCycle(); }
  bool Emitting() const override { return FEngine.State().EmissionOn; }
  std::string EmissionOnCommand() const override { return "\x1BO\r"; }
  std::string EmissionOffCommand() const override { return "\x1BS\r"; }
  size_t Count(const std::string& command) const override { return FEngine.Count(command); }
  void ClearLog() override { FEngine.ClearLog(); }

 private:
  lasersim::TRaycusEscEngine FEngine;
  std::unique_ptr<lasersim::TRaycusPtyServer> FPty;
};

// The own-brand laser over UDP, TCP and a serial line. Its protocol is a description file beside the host's
// executable: the simulator writes one to a folder of its own and makes that the reference host's folder, and
// answers by the same file. A restart serves the same ports again, as a laser keeps its address.
class TZorunSimulator final : public TLinkSimulator {
 public:
  bool Start(TLink link, const TSimSlot& slot, TLaserParams& params, std::string& error) override {
    auto* app = dynamic_cast<refhost::TRefApp*>(devlaser::Host());
    if (app == nullptr) return (error = "the own-brand laser needs the reference host for its description"), false;
    if (!FLoaded) {
      FHostDir.Write("ZorunLaser.json", TZorunDescriptionText{}.Text());
      if (!FEngine.Load(FHostDir / "ZorunLaser.json", 0, error)) return false;
      FLoaded = true;
    }
    app->SetExeDir(FHostDir.Path());
    lasersim::TZorunSimLinks links;
    if (link == TLink::Udp) links.UdpAddress = slot.Address;
    if (link == TLink::Tcp) links.TcpAddress = slot.Address;
    links.UdpPort = FUdpPort;
    links.TcpPort = FTcpPort;
    links.Pty = link == TLink::Serial;
    if (!FServer) FServer = std::make_unique<lasersim::TZorunSimServer>(FEngine, FSerialLinkPath);
    if (!FServer->Start(links)) return (error = FServer->LastError()), false;
    FUdpPort = FServer->UdpPort();
    FTcpPort = FServer->TcpPort();
    if (link == TLink::Udp) PointAtNetwork(params, devlaser::dttNetUDP, slot.Address, FUdpPort);
    if (link == TLink::Tcp) PointAtNetwork(params, devlaser::dttNetTcp, slot.Address, FTcpPort);
    return link != TLink::Serial || PointAtSerial(params, slot, FServer->PortPath(), error);
  }
  void Stop() override {
    if (FServer) FServer->Stop();
  }
  size_t Received() const override { return FEngine.Log().Received(); }
  bool WaitFor(const std::string& command, std::chrono::milliseconds timeout, size_t times) const override {
    return FEngine.Log().WaitFor(command, timeout, times);
  }
  bool SetPeerFault(TLink link, TPeerFault fault) override {
    // A datagram arrives whole or not at all: there are no pieces to cut it into.
    if (link == TLink::Udp && fault == TPeerFault::BytePieces) return false;
    using Mode = lasersim::TZorunSimEngine::TReplyMode;
    FEngine.SetReplyMode(fault == TPeerFault::Silent    ? Mode::Silent
                         : fault == TPeerFault::Garbage ? Mode::Garbage
                                                        : Mode::Normal);
    if (FServer) FServer->SetReplyShape(ShapeOf(fault));
    return true;
  }
  void PowerCycle() override { FEngine.PowerCycle(); }
  bool Emitting() const override { return FEngine.EmissionOn(); }
  std::string EmissionOnCommand() const override { return FrameText(lasersim::TZorunSimEngine::kEmissionOn); }
  std::string EmissionOffCommand() const override { return FrameText(lasersim::TZorunSimEngine::kEmissionOff); }
  size_t Count(const std::string& command) const override { return FEngine.Log().Count(command); }
  void ClearLog() override { FEngine.ClearLog(); }

 private:
  std::string FrameText(int type) const {
    const auto frame = FEngine.ExpectedFrame(type);
    return frame ? lasersim::ZorunHex(*frame) : std::string();
  }

  TScratchDir FHostDir;
  lasersim::TZorunSimEngine FEngine;
  std::unique_ptr<lasersim::TZorunSimServer> FServer;  // made at the first start, with the slot's link path
  bool FLoaded = false;
  uint16_t FUdpPort = 0;
  uint16_t FTcpPort = 0;
};

// An IPG laser slave on the host's simulated EtherCAT bus; what it receives are the controller's writes to its
// process image.
class TIpgEcatSimulator final : public TLinkSimulator {
 public:
  bool Start(TLink link, const TSimSlot& slot, TLaserParams& params, std::string& error) override {
    if (link != TLink::Ethercat || !slot.Bus) {
      error = "the IPG EtherCAT laser slave needs the host's EtherCAT system in the slot";
      return false;
    }
    const auto identity = refhost::TSimEcatSystem::kIpgLaserIdentity;
    slot.Bus->SetLaserSlave(true, identity.Word1, identity.Word2);
    FSlave = slot.Bus->Slave();
    params.DefParams.DataTransType = devlaser::dttEthercat;
    return true;
  }
  void Stop() override {}  // a slave stays on the bus; the laser's writes are what the suite watches
  size_t Received() const override { return FSlave ? FSlave->Writes().size() : 0; }
  // `command` is a write as the slave prints it, "EcatInput: 0, 0x0013".
  bool WaitFor(const std::string& command, std::chrono::milliseconds timeout, size_t times) const override {
    if (!FSlave) return false;
    return FSlave->WaitForWrites(
        [&](const std::vector<refhost::TEcatInputWrite>& writes) {
          return static_cast<size_t>(std::count_if(writes.begin(), writes.end(),
                                                   [&](const auto& w) { return w.Line() == command; })) >= times;
        },
        timeout);
  }

 private:
  std::shared_ptr<refhost::TSimEcatLaserSlave> FSlave;
};

}  // namespace

const char* PeerFaultName(TPeerFault fault) {
  switch (fault) {
    case TPeerFault::None:
      return "None";
    case TPeerFault::Silent:
      return "Silent";
    case TPeerFault::Garbage:
      return "Garbage";
    case TPeerFault::BytePieces:
      return "BytePieces";
    case TPeerFault::SlowFirstByte:
      return "SlowFirstByte";
  }
  return "?";
}

const char* LinkName(TLink link) {
  switch (link) {
    case TLink::None:
      return "NoLink";
    case TLink::Tcp:
      return "Tcp";
    case TLink::Udp:
      return "Udp";
    case TLink::Serial:
      return "Serial";
    case TLink::Ethercat:
      return "Ethercat";
  }
  return "?";
}

const std::vector<TSimFamily>& LinkSimulatorFamilies() {
  static const std::vector<TSimFamily> families = {
      {{"TIPG500Laser", "TIPGYLR2Laser"},
       {TLink::Tcp, TLink::Serial},
       [] { return std::make_unique<TIpgYlrSimulator>(); }},
      {{"TRaycusLaser"}, {TLink::Serial}, [] { return std::make_unique<TRaycusEscSimulator>(); }},
      {{"TRayQCWLaser"}, {TLink::Serial}, [] { return std::make_unique<TRayQcwSimulator>(); }},
      {{"TZorunLaser"}, {TLink::Udp, TLink::Tcp, TLink::Serial}, [] { return std::make_unique<TZorunSimulator>(); }},
      {{"TIPGEcatLaser"}, {TLink::Ethercat}, [] { return std::make_unique<TIpgEcatSimulator>(); }},
  };
  return families;
}

const TSimFamily* SimFamilyOf(const std::string& className) {
  for (const auto& family : LinkSimulatorFamilies())
    for (const auto& name : family.Classes)
      if (name == className) return &family;
  return nullptr;
}

}  // namespace testsupport
