#include "ZorunSimulator.h"

#include "frame/TextCompare.h"

namespace laserctl {
namespace {

constexpr const char* kLoopback = "127.0.0.1";

}  // namespace

bool ZorunSimTargetFromConfig(const nchost::TXmlSubConfig& root, TSimTarget& target) {
  if (!devlaser::SameText(root.GetString("Model"), kZorunFamily)) return false;
  target = {};
  target.Family = kZorunFamily;
  const nchost::TXmlSubConfig* zorun = root.FindSubConfig("Zorun");
  if (zorun == nullptr) return true;  // no link configured
  switch (zorun->GetInteger("CommType")) {
    case 1:
      target.Link = TSimLink::Serial;
      target.SerialPort = zorun->GetInteger("CommPort");
      break;
    case 2:
      target.Link = TSimLink::Udp;
      break;
    case 3:
      target.Link = TSimLink::Tcp;
      break;
    default:
      return true;
  }
  target.Host = zorun->GetString("NetAddress");
  target.Port = static_cast<uint16_t>(zorun->GetInteger("NetPort"));
  target.LaserIdx = zorun->GetInteger("LaserIdx");
  target.HasSimulator = true;
  return true;
}

void ZorunSimTargetFromParams(const devlaser::TLaserParams& params, TSimTarget& target) {
  target.Family = kZorunFamily;
  target.Host = params.DefParams.Net.TcpHost;
  target.Port = static_cast<uint16_t>(params.DefParams.Net.TcpPort);
  target.LaserIdx = params.CfgZorun.LaserIdx;
  target.HasSimulator = target.Link == TSimLink::Udp || target.Link == TSimLink::Tcp || target.Link == TSimLink::Serial;
}

void RedirectZorunHost(nchost::TXmlSubConfig& root, const std::string& host) {
  if (nchost::TXmlSubConfig* zorun = root.FindSubConfig("Zorun")) zorun->SetString("NetAddress", host);
}

bool TZorunSimulator::Start(const TSimTarget& target, const std::string& descriptionFile, std::string& error) {
  if (!FEngine.Load(descriptionFile, target.LaserIdx, error)) {
    error = "cannot start the Zorun simulator: " + error;
    return false;
  }
  lasersim::TZorunSimLinks links;
  auto start = [&](const std::string& host) {
    links.UdpAddress.reset();
    links.TcpAddress.reset();
    if (target.Link == TSimLink::Udp) {
      links.UdpAddress = host;
      links.UdpPort = target.Port;
    } else {
      links.TcpAddress = host;
      links.TcpPort = target.Port;
    }
    return FServer.Start(links);
  };
  if (target.Link == TSimLink::Serial) {
    links.Pty = true;
    if (FServer.Start(links)) return true;
    error = "cannot start the Zorun simulator on a pseudo-terminal: " + FServer.LastError();
    return false;
  }
  if (start(target.Host)) {
    FHost = target.Host;
    return true;
  }
  const std::string firstError = FServer.LastError();
  if (target.Host != kLoopback && start(kLoopback)) {
    FHost = kLoopback;
    return true;
  }
  error = "cannot start the Zorun simulator on " + target.Host + ":" + std::to_string(target.Port) + ": " + firstError;
  return false;
}

void TZorunSimulator::Stop() { FServer.Stop(); }

void TZorunSimulator::SetTrace(TTrace trace) {
  if (!trace) {
    FEngine.SetTraceHook({});
    return;
  }
  FEngine.SetTraceHook([trace = std::move(trace)](int type, const std::string& entry, const std::string& reply) {
    if (type == lasersim::TZorunSimEngine::kStateQuery || type == lasersim::TZorunSimEngine::kAlarmReply) return;
    trace("<- " + entry + "  -> " + (reply.empty() ? "(no reply)" : reply));
  });
}

}  // namespace laserctl
