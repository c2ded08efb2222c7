#include "registry/LaserLib.h"

#include <exception>

#include "frame/Format.h"
#include "frame/HostServices.h"
#include "frame/LaserError.h"

namespace devlaser {

void TNcLaserLib::RegisterLaser(TEnumLaserType laserType, std::initializer_list<int> subTypes,
                                const TLaserClass& laserClass) {
  std::bitset<256> set;
  for (int s : subTypes) set.set(static_cast<uint8_t>(s));
  if (subTypes.size() == 0) set.set(0);
  try {
    for (size_t s = 0; s < set.size(); ++s)
      if (set.test(s) && GetDefLaserClass(laserType, static_cast<uint8_t>(s)) != nullptr)
        throw ELaserError("RegisterLaser duplicate Error!");
    FEntries.push_back({laserClass, laserType, set});
  } catch (const std::exception& e) {
    LogMsg(Format("RegisterLaser Error %s", e.what()), nchost::msgtype::kLaserLog);
  }
}

void TNcLaserLib::RegisterLaser(TEnumLaserType laserType, std::initializer_list<int> subTypes,
                                const TLaserClass& laserClass, const std::string& model, TLaserTypeDic& types) {
  types.AddLaserType(model, laserType);
  RegisterLaser(laserType, subTypes, laserClass);
}

const TLaserClass* TNcLaserLib::GetDefLaserClass(TEnumLaserType laserType, uint8_t subType) const {
  for (const auto& entry : FEntries)
    if (entry.LaserType == laserType && entry.SubTypes.test(subType)) return &entry.LaserClass;
  return nullptr;
}

}  // namespace devlaser
