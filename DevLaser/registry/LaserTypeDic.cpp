#include "registry/LaserTypeDic.h"

#include "frame/LaserError.h"

namespace devlaser {

void TLaserTypeDic::AddLaserType(const std::string& model, TEnumLaserType laserType) {
  if (LaserModelToLaserType(model) != eltNone) throw ELaserError("LaserTypeDic AddLaserType duplicate Error");
  FTypes.emplace_back(model, laserType);
}

TEnumLaserType TLaserTypeDic::LaserModelToLaserType(const std::string& model) const {
  if (model.empty()) return eltNone;
  for (const auto& [key, type] : FTypes)
    if (key.find(model) != std::string::npos) return type;
  return eltNone;
}

}  // namespace devlaser
