// Model strings to laser families. A configured model is looked up by substring: the first key that contains the
// model names its family, so "YLR" finds nothing but "IPG" finds the IPG family.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "frame/LaserParams.h"

namespace devlaser {

class TLaserTypeDic {
 public:
  void Clear() { FTypes.clear(); }
  // Adds a model key; throws ELaserError "LaserTypeDic AddLaserType duplicate Error" when the model already
  // resolves to a family.
  void AddLaserType(const std::string& model, TEnumLaserType laserType);
  // The family of the first key (in the order they were added) that contains `model`; eltNone when none does or
  // the model is empty.
  TEnumLaserType LaserModelToLaserType(const std::string& model) const;

 private:
  std::vector<std::pair<std::string, TEnumLaserType>> FTypes;
};

}  // namespace devlaser
