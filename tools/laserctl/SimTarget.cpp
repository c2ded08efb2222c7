#include "SimTarget.h"

#include <array>
#include <string_view>

#include "RayQcwSim.h"
#include "RaycusSim.h"
#include "ZorunSimulator.h"

namespace laserctl {
namespace {

using devlaser::TLaserParams;

// The plug-in's model keys in the order its registry enters them. A configured model selects the first key that
// contains it, so "IPG" and "PG" are IPG models while "IPG-YLR" is none.
constexpr std::array<std::string_view, 17> kModelKeys = {"Zorun", "CO2", "IPG",    "Raycus", "Trumpf", "SPI",
                                                         "GSI",   "JK",  "NLight", "Meiman", "MaxSZ",  "LPing",
                                                         "Rofin", "CAS", "Mars",   "OVNT",   "Default"};

std::string_view ModelKey(std::string_view model) {
  if (model.empty()) return {};
  for (std::string_view key : kModelKeys)
    if (key.find(model) != std::string_view::npos) return key;
  return {};
}

// The family as people name it, by TEnumLaserType ordinal.
constexpr std::array<std::string_view, devlaser::kLaserTypeCount> kFamilyNames = {
    "unconfigured", "CO2",  "IPG",    "Raycus", "Trumpf",         "GSI",   "JK",   "Max", "Meiman", "SPI", "Rofin",
    "CAS",          "Mars", "nLight", "LPing",  "Optical Valley", "other", "Zorun"};

std::string FamilyName(devlaser::TEnumLaserType type) {
  return type < kFamilyNames.size() ? std::string(kFamilyNames[type]) : "unknown";
}

TSimLink LinkOf(devlaser::TDataTransType transport) {
  switch (transport) {
    case devlaser::dttSerial:
      return TSimLink::Serial;
    case devlaser::dttNetTcp:
      return TSimLink::Tcp;
    case devlaser::dttNetUDP:
      return TSimLink::Udp;
    case devlaser::dttEthercat:
      return TSimLink::Ethercat;
    default:
      return TSimLink::None;
  }
}

// The laser slaves the plug-in drives on the EtherCAT bus.
constexpr nchost::TEcatLaserIdentity kIpgEcatIdentity{0xE0000044, 3};
constexpr nchost::TEcatLaserIdentity kMaxEcatIdentity{1638, 0};

TSimTarget EcatTarget(const char* family, nchost::TEcatLaserIdentity identity) {
  TSimTarget target;
  target.Link = TSimLink::Ethercat;
  target.HasSimulator = true;
  target.Family = family;
  target.EcatIdentity = identity;
  return target;
}

}  // namespace

TSimTarget SimTargetFromParams(const TLaserParams& params) {
  if (auto raycus = RaycusSimTarget(params)) return *raycus;
  devlaser::TEnumLaserType type = params.LaserMainType;
  if (type == devlaser::eltNone && ModelKey(params.Model) == "IPG") type = devlaser::eltIPG;
  if (type == devlaser::eltIPG && (params.DefParams.DataTransType == devlaser::dttEthercat || params.LaserSubType == 9))
    return EcatTarget("IPG EtherCAT", kIpgEcatIdentity);
  if (type == devlaser::eltMaxSZ && params.LaserSubType == 3) return EcatTarget("Max EtherCAT", kMaxEcatIdentity);

  TSimTarget target;
  target.Link = LinkOf(params.DefParams.DataTransType);
  target.Family = FamilyName(type);
  // Sub-types 0 to 2 are the IPG YLR laser, 3 the YLR2; both speak the YLR text commands.
  const bool ipgYlr = type == devlaser::eltIPG && params.LaserSubType >= 0 && params.LaserSubType <= 3;
  if (ipgYlr) target.Family = "IPG YLR";
  if (target.Link == TSimLink::Tcp) {
    target.Host = params.DefParams.Net.TcpHost;
    target.Port = ipgYlr ? kIpgYlrTcpPort : static_cast<uint16_t>(params.DefParams.Net.TcpPort);
  }
  if (target.Link == TSimLink::Serial) target.SerialPort = params.DefParams.Comm.CommPort;
  target.HasSimulator = ipgYlr && (target.Link == TSimLink::Tcp || target.Link == TSimLink::Serial);
  if (IsRayQcwParams(params)) {
    target.Family = kRayQcwFamily;
    target.HasSimulator = target.Link == TSimLink::Serial;
  }
  if (type == devlaser::eltZorun || (type == devlaser::eltNone && ModelKey(params.Model) == kZorunFamily))
    ZorunSimTargetFromParams(params, target);
  return target;
}

TSimTarget SimTargetFromConfig(const nchost::TXmlSubConfig& root) {
  if (auto qcw = RayQcwTargetFromConfig(root)) return *qcw;
  if (auto raycus = RaycusSimTarget(root)) return *raycus;
  TSimTarget target;
  if (ZorunSimTargetFromConfig(root, target)) return target;
  if (ModelKey(root.GetString("Model")) != "IPG") return target;
  const nchost::TXmlSubConfig* ipg = root.FindSubConfig("IPG");
  if (ipg != nullptr && ipg->GetString("Model").find("Ethercat") != std::string::npos)
    return EcatTarget("IPG EtherCAT", kIpgEcatIdentity);
  if (ipg == nullptr || ipg->GetString("Model").find("YLR") == std::string::npos) return target;
  target.Family = "IPG YLR";
  if (ipg->GetBool("UseTcp")) {
    target.Link = TSimLink::Tcp;
    target.Host = ipg->GetString("TcpHost");
    target.Port = kIpgYlrTcpPort;
  } else if (ipg->GetInteger("CommPort") >= 1) {
    target.Link = TSimLink::Serial;
    target.SerialPort = ipg->GetInteger("CommPort");
  }
  target.HasSimulator = target.Link != TSimLink::None;
  return target;
}

void RedirectTcpHost(TLaserParams& params, const std::string& host) { params.DefParams.Net.TcpHost = host; }

void RedirectTcpHost(nchost::TXmlSubConfig& root, const std::string& host) {
  if (nchost::TXmlSubConfig* ipg = root.FindSubConfig("IPG")) ipg->SetString("TcpHost", host);
  RedirectZorunHost(root, host);
}

const char* SimLinkName(TSimLink link) {
  switch (link) {
    case TSimLink::Serial:
      return "a serial line";
    case TSimLink::Tcp:
      return "TCP";
    case TSimLink::Udp:
      return "UDP";
    case TSimLink::Ethercat:
      return "EtherCAT";
    case TSimLink::None:
      break;
  }
  return "no link";
}

}  // namespace laserctl
