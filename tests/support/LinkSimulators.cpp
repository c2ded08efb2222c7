#include "support/LinkSimulators.h"

#include "frame/HostServices.h"
#include "refhost/RefApp.h"
#include "sim/ipg/IpgYlrEngine.h"
#include "sim/ipg/IpgYlrPtyServer.h"
#include "sim/ipg/IpgYlrTcpServer.h"
#include "sim/raycus/RaycusEscEngine.h"
#include "sim/raycus/RaycusPtyServer.h"
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
      if (!FPty.Start()) return (error = FPty.LastError()), false;
      return PointAtSerial(params, slot, FPty.SlavePath(), error);
    }
    error = "the IPG YLR simulator speaks TCP and serial only";
    return false;
  }
  void Stop() override {
    FTcp.Stop();
    FPty.Stop();
  }
  size_t Received() const override { return FEngine.Log().Received(); }
  bool WaitFor(const std::string& command, std::chrono::milliseconds timeout, size_t times) const override {
    return FEngine.Log().WaitFor(command, timeout, times);
  }

 private:
  lasersim::TIpgYlrEngine FEngine;
  lasersim::TIpgYlrTcpServer FTcp{FEngine};
  lasersim::TIpgYlrPtyServer FPty{FEngine};
};

// Raycus ESC commands over a serial line.
class TRaycusEscSimulator final : public TLinkSimulator {
 public:
  bool Start(TLink link, const TSimSlot& slot, TLaserParams& params, std::string& error) override {
    if (link != TLink::Serial) {
      error = "the Raycus ESC simulator speaks serial only";
      return false;
    }
    if (!FPty.Start()) return (error = FPty.LastError()), false;
    return PointAtSerial(params, slot, FPty.PortPath(), error);
  }
  void Stop() override { FPty.Stop(); }
  size_t Received() const override { return FEngine.Received(); }
  bool WaitFor(const std::string& command, std::chrono::milliseconds timeout, size_t times) const override {
    return FEngine.WaitFor(command, timeout, times);
  }

 private:
  lasersim::TRaycusEscEngine FEngine;
  lasersim::TRaycusPtyServer FPty{FEngine};
};

// The own-brand laser over UDP, TCP and a serial line. Its protocol is a description file beside the host's
// executable: the simulator writes one to a folder of its own and makes that the reference host's folder, and
// answers by the same file.
class TZorunSimulator final : public TLinkSimulator {
 public:
  bool Start(TLink link, const TSimSlot& slot, TLaserParams& params, std::string& error) override {
    auto* app = dynamic_cast<refhost::TRefApp*>(devlaser::Host());
    if (app == nullptr) return (error = "the own-brand laser needs the reference host for its description"), false;
    FHostDir.Write("ZorunLaser.json", TZorunDescriptionText{}.Text());
    app->SetExeDir(FHostDir.Path());
    if (!FEngine.Load(FHostDir / "ZorunLaser.json", 0, error)) return false;
    lasersim::TZorunSimLinks links;
    if (link == TLink::Udp) links.UdpAddress = slot.Address;
    if (link == TLink::Tcp) links.TcpAddress = slot.Address;
    links.Pty = link == TLink::Serial;
    if (!FServer.Start(links)) return (error = FServer.LastError()), false;
    if (link == TLink::Udp) PointAtNetwork(params, devlaser::dttNetUDP, slot.Address, FServer.UdpPort());
    if (link == TLink::Tcp) PointAtNetwork(params, devlaser::dttNetTcp, slot.Address, FServer.TcpPort());
    return link != TLink::Serial || PointAtSerial(params, slot, FServer.SlavePath(), error);
  }
  void Stop() override { FServer.Stop(); }
  size_t Received() const override { return FEngine.Log().Received(); }
  bool WaitFor(const std::string& command, std::chrono::milliseconds timeout, size_t times) const override {
    return FEngine.Log().WaitFor(command, timeout, times);
  }

 private:
  TScratchDir FHostDir;
  lasersim::TZorunSimEngine FEngine;
  lasersim::TZorunSimServer FServer{FEngine};
};

}  // namespace

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
  }
  return "?";
}

const std::vector<TSimFamily>& LinkSimulatorFamilies() {
  static const std::vector<TSimFamily> families = {
      {{"TIPG500Laser", "TIPGYLR2Laser"},
       {TLink::Tcp, TLink::Serial},
       [] { return std::make_unique<TIpgYlrSimulator>(); }},
      {{"TRaycusLaser"}, {TLink::Serial}, [] { return std::make_unique<TRaycusEscSimulator>(); }},
      {{"TZorunLaser"}, {TLink::Udp, TLink::Tcp, TLink::Serial}, [] { return std::make_unique<TZorunSimulator>(); }},
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
