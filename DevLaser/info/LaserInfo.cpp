#include "info/LaserInfo.h"

#include "core/FiberLaser.h"
#include "ipg/Ipg500Laser.h"
#include "ipg/IpgOtherLasers.h"
#include "raycus/RaycusLasers.h"

namespace devlaser {

void TNcLaserInfo::ReadAllData(nchost::ISuperObject& obj) {
  obj.S("Version", "1.0.0");
  auto* laser = dynamic_cast<TNcLaser*>(FLaser.get());
  obj.S("LaserType", laser != nullptr ? laser->Params().Model : "OtherLaser");
  obj.D("DiodeCurrent", FLaser->GetDiodeCurrent());
  obj.I("PwmFreq", FLaser->GetPwmFreq());
  obj.D("PwmRatio", FLaser->GetPwmRatio());
  obj.B("IsAimingOn", FLaser->GetIsAimingOn());
  obj.B("IsEmissionOn", FLaser->GetIsEmissionOn());
  obj.B("IsLaserOn", FLaser->GetIsLaserOn());
}

void TFiberLaserInfo::ReadAllData(nchost::ISuperObject& obj) {
  TNcLaserInfo::ReadAllData(obj);
  if (auto* fiber = dynamic_cast<TFiberLaser*>(FLaser.get())) {
    obj.S("LaserType", fiber->Params().Model);
    obj.B("IsQCW", fiber->GetIsQCW());
  }
}

void TIPG500LaserInfo::ReadAllData(nchost::ISuperObject& obj) {
  TFiberLaserInfo::ReadAllData(obj);
  auto* laser = dynamic_cast<TIPG500Laser*>(FLaser.get());
  if (laser == nullptr) return;
  // The family's protocol name, not the configured model.
  obj.S("LaserType", "IPG-YLR");
  if (const auto* driver = laser->Driver()) {
    obj.I("StateBit", driver->GetLaserState());
    obj.I("AlarmBit", driver->GetLaserAlarm());
    obj.I("WarningBit", driver->GetLaserWarning());
  }
}

void TIPGYLSLaserInfo::ReadAllData(nchost::ISuperObject& obj) {
  TFiberLaserInfo::ReadAllData(obj);
  if (dynamic_cast<TIPGYLSLaser*>(FLaser.get()) != nullptr) obj.S("LaserType", "IPG-YLS");
}

void TRaycusLaserInfo::ReadAllData(nchost::ISuperObject& obj) {
  TFiberLaserInfo::ReadAllData(obj);
  if (dynamic_cast<TRaycusLaser*>(FLaser.get()) != nullptr) obj.S("LaserType", "Ray-CW");
}

void TRaycusQCWInfo::ReadAllData(nchost::ISuperObject& obj) {
  TFiberLaserInfo::ReadAllData(obj);
  auto* laser = dynamic_cast<TRayQCWLaser*>(FLaser.get());
  if (laser == nullptr) return;
  obj.S("LaserType", "Ray-QCW");
  const auto* driver = laser->Driver();
  obj.I("AlarmBit", driver != nullptr ? driver->GetDeviceStatus() & 0xFFFF : 0);
}

std::shared_ptr<nchost::TVkInfoSource> CreateLaserInfo(std::shared_ptr<nchost::INcLaser30> laser) {
  if (!laser) return nullptr;
  nchost::INcLaser30* object = laser.get();
  if (dynamic_cast<TIPG500Laser*>(object) != nullptr) return std::make_shared<TIPG500LaserInfo>(std::move(laser));
  if (dynamic_cast<TIPGYLSLaser*>(object) != nullptr) return std::make_shared<TIPGYLSLaserInfo>(std::move(laser));
  if (dynamic_cast<TRaycusLaser*>(object) != nullptr) return std::make_shared<TRaycusLaserInfo>(std::move(laser));
  if (dynamic_cast<TFiberLaser*>(object) != nullptr) return std::make_shared<TFiberLaserInfo>(std::move(laser));
  return std::make_shared<TNcLaserInfo>(std::move(laser));
}

}  // namespace devlaser
