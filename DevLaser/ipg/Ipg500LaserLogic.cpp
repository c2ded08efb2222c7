#include "ipg/Ipg500LaserLogic.h"

namespace devlaser {

std::string TIPG500LaserLogic::GetAlarmIDPrefix() { return "IPGYLR"; }

std::unique_ptr<TIPGYLRDriver> TIPG500LaserLogic::CreateDriver() { return std::make_unique<TIPGYLRDriver>(FParams); }

void TIPG500LaserLogic::ConfigureDriver() {
  Driver()->SetAlarmMode(false);
  TIPGYLRLaserBase::ConfigureDriver();
}

}  // namespace devlaser
