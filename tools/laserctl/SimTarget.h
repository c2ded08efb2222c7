// Which simulated laser matches a configured laser, and where it must answer: decided from the configuration
// (before the laser exists, so that a laser never talks to real equipment named in the configuration while a
// simulator was asked for) or from a parameter record.
#pragma once

#include <cstdint>
#include <string>

#include "frame/LaserParams.h"
#include "host/Ecat.h"
#include "host/XmlSubConfig.h"

namespace laserctl {

enum class TSimLink { None, Serial, Tcp, Udp, Ethercat };

struct TSimTarget {
  TSimLink Link = TSimLink::None;
  bool HasSimulator = false;  // a simulator of this family and link exists
  std::string Family;         // for messages: "IPG YLR", "Raycus", ...
  std::string Host;           // TCP: the laser's configured address
  uint16_t Port = 0;          // TCP: the port the laser's driver connects to
  int32_t SerialPort = 0;     // serial: the configured port number
  int32_t LaserIdx = 0;       // own-brand: the laser element of its description file
  std::string HostDir;        // the host's executable folder, where description files are found
  // EtherCAT: the laser slave to put on the bus.
  nchost::TEcatLaserIdentity EcatIdentity;
};

// The IPG YLR text protocol always runs on this TCP port.
inline constexpr uint16_t kIpgYlrTcpPort = 10001;

// From a parameter record: the family, sub-type and transport decide.
TSimTarget SimTargetFromParams(const devlaser::TLaserParams& params);
// From a laser configuration tree: only the IPG YLR and own-brand keys are read; other families give a target without a
// simulator, whose link laserctl learns from the parameters the laser was built from.
TSimTarget SimTargetFromConfig(const nchost::TXmlSubConfig& root);

// Points the laser at a simulator on `host` instead of its configured address.
void RedirectTcpHost(devlaser::TLaserParams& params, const std::string& host);
void RedirectTcpHost(nchost::TXmlSubConfig& root, const std::string& host);

const char* SimLinkName(TSimLink link);

}  // namespace laserctl
