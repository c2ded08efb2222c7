#include "ipg/Ipg500Laser.h"

namespace devlaser {

std::string TIPG500Laser::GetAlarmIDPrefix() { return "IPGYLR"; }

std::unique_ptr<TIPGYLRDriver> TIPG500Laser::CreateDriver() {
  return std::make_unique<TIPGYLRDriver>(FParams, &Ports());
}

void TIPG500Laser::ConfigureDriver() {
  Driver()->SetAlarmMode(false);
  TIPGYLRLaserBase::ConfigureDriver();
}

}  // namespace devlaser
